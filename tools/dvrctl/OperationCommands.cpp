// One subcommand per IDVR operation, in interface order, with typed positional
// arguments in the operation's order. Pointer out-parameters are dvrctl's own
// variables and are printed when the call succeeds.
#include <ctime>
#include <string>

#include "ChannelProbe.h"
#include "Command.h"
#include "Refused.h"
#include "RequestGuard.h"
#include "ResultExplainer.h"
#include "StampOptions.h"
#include "UsageError.h"
#include "WatchingCallback.h"

using android::sp;
using dvrspace::IDVR;

namespace dvrctl {

namespace {

const char *const kEncIdHelp = "ENC_ID is a recorder's encoder id (see getEncoder).\n";
const char *const kNullTextHelp = "An omitted text argument is passed as NULL.\n";
const char *const kForceHelp =
    "--force sends the request although dvrctl refuses it (see docs/dvrctl.md).\n";

void explain(Report &report, int result, const dvrguard::Situation &situation) {
    if (result < 0) {
        report.explain(result, dvrguard::ResultExplainer::meaning(result),
                       dvrguard::ResultExplainer::explain(result, situation));
    }
}

// The result of an operation that names no channel.
int finish(Report &report, int result) {
    report.setResult(result);
    dvrguard::Situation situation;
    situation.operation = report.command();
    explain(report, result, situation);
    return report.exitStatus();
}

// The result of an operation on channel encId: a failure is explained with
// what the service tells about the channel afterwards.
int finishOnChannel(const sp<IDVR> &service, Report &report, int result, int encId) {
    report.setResult(result);
    if (result < 0) {
        explain(report, result, ChannelProbe(*service, encId).situation(report.command()));
    }
    return report.exitStatus();
}

// Unless forced, asks check about channel encId before the request goes out
// and throws Refused with its reason. An unknown channel is not checked: the
// service answers -1 and changes nothing.
void guardChannel(IDVR &service, int encId, bool forced,
                  const std::function<dvrguard::Refusal(ChannelProbe &)> &check) {
    if (forced) {
        return;
    }
    ChannelProbe probe(service, encId);
    if (probe.known()) {
        refuseUnlessForced(check(probe), forced);
    }
}

bool namesChannel(const std::string &argument) {
    return argument == "ENC_ID";
}

// An operation without arguments that returns a result code or a count.
template <typename R>
Command withoutArguments(const std::string &name, const std::string &summary, R (IDVR::*method)()) {
    return {name, "", summary, "", [method](CommandLine &args) -> Call {
                args.finish();
                return onService([method](const sp<IDVR> &service, Report &report) {
                    return finish(report, static_cast<int>(((*service).*method)()));
                });
            }};
}

// An operation on one id (an encoder, camera or audio id) that returns a
// result code or an int value.
template <typename R>
Command withId(const std::string &name, const std::string &argument, const std::string &summary,
               R (IDVR::*method)(int), const std::string &details = kEncIdHelp) {
    return {name, argument, summary, details, [method, argument](CommandLine &args) -> Call {
                const int id = args.integer(argument);
                args.finish();
                return onService([method, id, argument](const sp<IDVR> &service, Report &report) {
                    const int result = static_cast<int>(((*service).*method)(id));
                    return namesChannel(argument) ? finishOnChannel(service, report, result, id)
                                                  : finish(report, result);
                });
            }};
}

// A getter of one encoder's enumeration-valued setting or state.
template <typename E>
Command enumGetter(const std::string &name, const std::string &summary, E (IDVR::*method)(int),
                   const EnumNames &names) {
    return {name, "ENC_ID", summary, kEncIdHelp, [method, &names](CommandLine &args) -> Call {
                const int encId = args.integer("ENC_ID");
                args.finish();
                return onService([method, encId, &names](const sp<IDVR> &service, Report &report) {
                    const int result = static_cast<int>(((*service).*method)(encId));
                    report.setResult(result, names);
                    if (result < 0) {
                        explain(report, result,
                                ChannelProbe(*service, encId).situation(report.command()));
                    }
                    return report.exitStatus();
                });
            }};
}

// An operation on one id with one int-sized second argument.
template <typename A>
Command withIdAndValue(const std::string &name, const std::string &synopsis,
                       const std::string &summary, dvrspace::DVRResult_e (IDVR::*method)(int, A),
                       std::function<A(CommandLine &)> readValue,
                       const std::string &details = kEncIdHelp) {
    const std::string idName = synopsis.substr(0, synopsis.find(' '));
    return {
        name, synopsis, summary, details, [=](CommandLine &args) -> Call {
            const int id = args.integer(idName);
            const A value = readValue(args);
            args.finish();
            return onService([method, id, value, idName](const sp<IDVR> &service, Report &report) {
                const int result = ((*service).*method)(id, value);
                return namesChannel(idName) ? finishOnChannel(service, report, result, id)
                                            : finish(report, result);
            });
        }};
}

std::function<int(CommandLine &)> integerArgument(const std::string &name) {
    return [name](CommandLine &args) { return args.integer(name); };
}

// The fields the service returns: enabled, x and y, and the user stamp's
// interval; never the font size and colour.
void addStamp(Report &report, const dvrspace::QVStampSettings_t &stamp, bool withInterval) {
    report.add("enabled", stamp.enabled);
    report.add("xPx", static_cast<int>(stamp.x));
    report.add("yPx", static_cast<int>(stamp.y));
    if (withInterval) {
        report.add("intervalMs", static_cast<int>(stamp.interval));
    }
}

using StampGetter = dvrspace::DVRResult_e (IDVR::*)(int, dvrspace::QVStampSettings_t *);

Command stampGetter(const std::string &name, const std::string &summary, StampGetter method,
                    bool withInterval) {
    return {name, "ENC_ID", summary,
            std::string(kEncIdHelp) +
                "The service does not return the font size and colour, so neither is printed.\n",
            [method, withInterval](CommandLine &args) -> Call {
                const int encId = args.integer("ENC_ID");
                args.finish();
                return onService([=](const sp<IDVR> &service, Report &report) {
                    dvrspace::QVStampSettings_t stamp{};
                    const int result = ((*service).*method)(encId, &stamp);
                    if (result >= 0) {
                        addStamp(report, stamp, withInterval);
                    }
                    return finishOnChannel(service, report, result, encId);
                });
            }};
}

// Changes only the fields named on the command line: enabled, x and y (and
// the user stamp's interval) are read from the service first, so
// "--enable off" keeps the position. The service does not return the font
// size and colour but sets them with every change, so both must be given.
Command stampSetter(const std::string &name, const std::string &summary, StampGetter getter,
                    StampGetter setter, const std::string &getterName) {
    return {
        name, "ENC_ID " + StampOptions::synopsis(), summary,
        std::string(kEncIdHelp) + StampOptions::help() + "Enabled, x and y keep the value " +
            getterName +
            " reports when not given.\n"
            "The service does not report the font size and colour but sets them with every\n"
            "change: --size and --color must both be given, or the stamp turns magenta and\n"
            "smallest. A font size outside 0..4 aborts the service at once, a colour\n"
            "outside 0..8 at the first stamped frame: dvrctl refuses both.\n" +
            kForceHelp,
        [getter, setter, getterName, name](CommandLine &args) -> Call {
            const StampOptions options(args);
            const int encId = args.integer("ENC_ID");
            args.finish();
            if (!options.fontSize() || !options.color()) {
                refuseUnlessForced(name + " sets the font size and colour too, and " + getterName +
                                       " does not return them: give --size and --color as well "
                                       "(see the table in docs/dvrctl.md)",
                                   args.forced());
            } else {
                refuseUnlessForced(
                    dvrguard::RequestGuard::stampCodes(name, *options.fontSize(), *options.color()),
                    args.forced());
            }
            return onService([=](const sp<IDVR> &service, Report &report) {
                dvrspace::QVStampSettings_t stamp{};
                const int current = ((*service).*getter)(encId, &stamp);
                if (current < 0) {
                    return finishOnChannel(service, report, current, encId);
                }
                options.applyTo(&stamp);
                return finishOnChannel(service, report, ((*service).*setter)(encId, &stamp), encId);
            });
        }};
}

std::vector<Command> makeCommands() {
    std::vector<Command> commands;
    const auto callbackSubscription = [](const std::string &name, const std::string &summary,
                                         auto method) {
        return Command{name, "PID CBK_ID TYPE", summary,
                       "TYPE is " + EnumNames::callbackTypes().choices() + " or its number.\n",
                       [method](CommandLine &args) -> Call {
                           const int pid = args.integer("PID");
                           const int cbkId = args.integer("CBK_ID");
                           const auto type = static_cast<dvrspace::DVRCbkObjType_e>(
                               args.enumeration("TYPE", EnumNames::callbackTypes()));
                           args.finish();
                           return onService([=](const sp<IDVR> &service, Report &report) {
                               return finish(report, ((*service).*method)(pid, cbkId, type));
                           });
                       }};
    };
    commands.push_back(callbackSubscription(
        "registerCallback", "Subscribes client PID under CBK_ID to TYPE notifications.",
        &IDVR::registerCallback));
    commands.push_back(callbackSubscription(
        "unregisterCallback", "Cancels the subscription of client PID under CBK_ID to TYPE.",
        &IDVR::unregisterCallback));
    commands.push_back(
        {"establishCallback", "PID [--null]",
         "Attaches a callback object of this dvrctl process as client PID.",
         "The object answers nothing and goes away when dvrctl exits, so the service\n"
         "sees the client die; use 'dvrctl watch' for a client that stays.\n"
         "--null passes a null callback object instead.\n",
         [](CommandLine &args) -> Call {
             const bool null = args.flag("null");
             const int pid = args.integer("PID");
             args.finish();
             return onService([=](const sp<IDVR> &service, Report &report) {
                 sp<dvrspace::IDVRCallback> callback;
                 if (!null) {
                     callback = new WatchingCallback(WatchingCallback::Answers{}, nullptr);
                 }
                 return finish(report, service->establishCallback(pid, callback));
             });
         }});
    commands.push_back(
        withId("destroyCallback", "PID", "Detaches client PID.", &IDVR::destroyCallback, ""));
    commands.push_back(
        {"startRecordAll", "", "Starts every recorder that is ready.",
         "Refused when a ready recorder records audio without an audio input attached:\n"
         "the service would abort.\n" +
             std::string(kForceHelp),
         [](CommandLine &args) -> Call {
             args.finish();
             const bool forced = args.forced();
             return onService([forced](const sp<IDVR> &service, Report &report) {
                 constexpr int kReady = dvrspace::DVR_STM_READY;
                 const int count = forced ? 0 : service->getRecorderCount();
                 for (int index = 0; index < count; ++index) {
                     int encId = 0;
                     if (service->getEncoder(index, &encId) == 0 &&
                         service->getCurrentState(encId) == kReady) {
                         ChannelProbe probe(*service, encId);
                         refuseUnlessForced(dvrguard::RequestGuard::startRecord(
                                                encId, kReady, service->getAudioRecording(encId),
                                                probe.audioAttached()),
                                            forced);
                     }
                 }
                 return finish(report, service->startRecordAll());
             });
         }});
    commands.push_back(
        withoutArguments("stopRecordAll", "Stops every recorder.", &IDVR::stopRecordAll));
    commands.push_back(withoutArguments(
        "applySettingsAll", "Restarts every recording recorder with its staged settings.",
        &IDVR::applySettingsAll));
    commands.push_back(withoutArguments("abandonNewSettingsAll",
                                        "Drops the staged settings of every recorder.",
                                        &IDVR::abandonNewSettingsAll));
    commands.push_back(withoutArguments("factoryReset",
                                        "Resets every recorder's settings to the factory defaults.",
                                        &IDVR::factoryReset));
    commands.push_back({"setCameraSources", "COUNT [SRC...]",
                        "Selects the camera sources and rebuilds the cameras and recorders.",
                        "Exactly COUNT sources must follow.\n", [](CommandLine &args) -> Call {
                            const int count = args.integer("COUNT");
                            std::vector<int> sources;
                            while (args.hasMore()) {
                                sources.push_back(args.integer("SRC"));
                            }
                            if (count < 0 || static_cast<size_t>(count) != sources.size()) {
                                throw UsageError("COUNT is " + std::to_string(count) + " but " +
                                                 std::to_string(sources.size()) +
                                                 " sources follow");
                            }
                            return onService([=](const sp<IDVR> &service, Report &report) {
                                return finish(report, service->setCameraSources(count, sources));
                            });
                        }});
    commands.push_back(withIdAndValue<bool>(
        "setAudioRecording", "ENC_ID on|off", "Records audio with the video, or not.",
        &IDVR::setAudioRecording, [](CommandLine &args) { return args.boolean("ENABLE"); },
        "ENC_ID -1 addresses every recorder.\n"));
    commands.push_back({"getAudioRecording", "ENC_ID",
                        "Prints whether audio is recorded (the service answers for its first "
                        "recorder whatever ENC_ID is).",
                        "", [](CommandLine &args) -> Call {
                            const int encId = args.integer("ENC_ID");
                            args.finish();
                            return onService([encId](const sp<IDVR> &service, Report &report) {
                                report.setResult(service->getAudioRecording(encId));
                                return report.exitStatus();
                            });
                        }});
    commands.push_back(
        withoutArguments("getCameraCount", "Prints the number of cameras.", &IDVR::getCameraCount));
    commands.push_back({"getCamera", "INDEX", "Prints the id and type of camera INDEX.", "",
                        [](CommandLine &args) -> Call {
                            const int index = args.integer("INDEX");
                            args.finish();
                            return onService([index](const sp<IDVR> &service, Report &report) {
                                int camId = 0;
                                auto type = dvrspace::QV_DVR_DEVICE_TYPE_UNKNOWN;
                                const int result = service->getCamera(index, &camId, &type);
                                if (result >= 0) {
                                    report.add("camId", camId);
                                    report.add("type", static_cast<int>(type),
                                               EnumNames::deviceTypes());
                                }
                                return finish(report, result);
                            });
                        }});
    commands.push_back(withoutArguments("getAudioCount", "Prints the number of audio inputs.",
                                        &IDVR::getAudioCount));
    commands.push_back({"getAudio", "INDEX", "Prints the id of audio input INDEX.", "",
                        [](CommandLine &args) -> Call {
                            const int index = args.integer("INDEX");
                            args.finish();
                            return onService([index](const sp<IDVR> &service, Report &report) {
                                int audId = 0;
                                const int result = service->getAudio(index, &audId);
                                if (result >= 0) {
                                    report.add("audId", audId);
                                }
                                return finish(report, result);
                            });
                        }});
    commands.push_back(
        {"getSupportSamplingRate", "",
         "Prints the audio sampling rates that both the encoder and the audio inputs support.",
         "Plain output is one line of rates separated by spaces.\n", [](CommandLine &args) -> Call {
             args.finish();
             return onService([](const sp<IDVR> &service, Report &report) {
                 const std::set<unsigned int> rates = service->getSupportSamplingRate();
                 std::string plain;
                 for (const unsigned int rate : rates) {
                     plain += (plain.empty() ? "" : " ") + std::to_string(rate);
                 }
                 report.setResult(nlohmann::json(rates), plain);
                 return report.exitStatus();
             });
         }});
    commands.push_back(withoutArguments("getRecorderCount", "Prints the number of recorders.",
                                        &IDVR::getRecorderCount));
    commands.push_back({"getEncoder", "INDEX", "Prints the encoder id of recorder INDEX.", "",
                        [](CommandLine &args) -> Call {
                            const int index = args.integer("INDEX");
                            args.finish();
                            return onService([index](const sp<IDVR> &service, Report &report) {
                                int encId = 0;
                                const int result = service->getEncoder(index, &encId);
                                if (result >= 0) {
                                    report.add("encId", encId);
                                }
                                return finish(report, result);
                            });
                        }});
    commands.push_back(withIdAndValue<int>("attachCamera", "ENC_ID CAM_ID",
                                           "Feeds the recorder from camera CAM_ID.",
                                           &IDVR::attachCamera, integerArgument("CAM_ID")));
    commands.push_back(
        withId("detachCamera", "ENC_ID", "Detaches the recorder's camera.", &IDVR::detachCamera));
    const auto attachedIndex = [](const std::string &name, const std::string &summary,
                                  auto method) {
        return Command{name, "ENC_ID", summary,
                       std::string(kEncIdHelp) +
                           "The service aborts on an unknown ENC_ID: take it from getEncoder.\n",
                       [method](CommandLine &args) -> Call {
                           const int encId = args.integer("ENC_ID");
                           args.finish();
                           return onService([=](const sp<IDVR> &service, Report &report) {
                               int index = 0;
                               const int result = ((*service).*method)(encId, &index);
                               if (result >= 0) {
                                   report.add("index", index);
                               }
                               return finishOnChannel(service, report, result, encId);
                           });
                       }};
    };
    commands.push_back(attachedIndex("getAttachedCamera",
                                     "Prints the INDEX of the recorder's camera (see getCamera).",
                                     &IDVR::getAttachedCamera));
    commands.push_back(withIdAndValue<int>("attachAudio", "ENC_ID AUD_ID",
                                           "Feeds the recorder from audio input AUD_ID.",
                                           &IDVR::attachAudio, integerArgument("AUD_ID")));
    commands.push_back(withId("detachAudio", "ENC_ID", "Detaches the recorder's audio input.",
                              &IDVR::detachAudio));
    commands.push_back(attachedIndex(
        "getAttachedAudio", "Prints the INDEX of the recorder's audio input (see getAudio).",
        &IDVR::getAttachedAudio));
    commands.push_back(
        {"startRecord", "ENC_ID", "Starts recording.",
         std::string(kEncIdHelp) +
             "Refused when the channel records audio (getAudioRecording) without an audio\n"
             "input attached: the service would abort.\n" +
             kForceHelp,
         [](CommandLine &args) -> Call {
             const int encId = args.integer("ENC_ID");
             args.finish();
             const bool forced = args.forced();
             return onService([=](const sp<IDVR> &service, Report &report) {
                 guardChannel(*service, encId, forced, [&](ChannelProbe &probe) {
                     return dvrguard::RequestGuard::startRecord(encId, probe.state(),
                                                                service->getAudioRecording(encId),
                                                                probe.audioAttached());
                 });
                 return finishOnChannel(service, report, service->startRecord(encId), encId);
             });
         }});
    commands.push_back(withId("stopRecord", "ENC_ID", "Stops recording and waits for the end.",
                              &IDVR::stopRecord));
    commands.push_back(
        {"autoNextFile", "ENC_ID on|off",
         "Asks a client for each next file name (on), or lets the service name them (off).",
         std::string(kEncIdHelp) +
             "On, the service asks the client subscribed to filename notifications (for\n"
             "example 'dvrctl watch --file-name NAME') for every next name. With no client\n"
             "answering, a channel's first startRecord aborts the service, so dvrctl refuses\n"
             "'on' unless the channel is recording; add --force when a client answers.\n" +
             kForceHelp,
         [](CommandLine &args) -> Call {
             const int encId = args.integer("ENC_ID");
             const bool on = args.boolean("ENABLE");
             args.finish();
             const bool forced = args.forced();
             return onService([=](const sp<IDVR> &service, Report &report) {
                 guardChannel(*service, encId, forced || !on, [&](ChannelProbe &probe) {
                     return dvrguard::RequestGuard::autoNextFile(encId, on, probe.state());
                 });
                 return finishOnChannel(service, report, service->autoNextFile(encId, on), encId);
             });
         }});
    commands.push_back(
        {"nextFile", "ENC_ID [FILE_NAME]",
         "Names the channel's next file; it does not close the current one.",
         std::string(kEncIdHelp) + kNullTextHelp +
             "Idle, the channel becomes ready to start in FILE_NAME. While recording, FILE_NAME\n"
             "replaces the pending next name: the current file goes on to its file length\n"
             "and the next one is FILE_NAME.\n",
         [](CommandLine &args) -> Call {
             const int encId = args.integer("ENC_ID");
             const std::optional<std::string> name = args.optionalText("FILE_NAME");
             args.finish();
             return onService([=](const sp<IDVR> &service, Report &report) {
                 return finishOnChannel(service, report,
                                        service->nextFile(encId, name ? name->c_str() : nullptr),
                                        encId);
             });
         }});
    commands.push_back(
        {"setStoragePath", "ENC_ID [PATH]", "Sets the directory of the default-named files.",
         std::string(kEncIdHelp) + kNullTextHelp +
             "The service builds a default name as PATH/default_cENC_ID_[START]_[END].EXT,\n"
             "cutting it before the times are filled in at 63 characters and cutting PATH at\n"
             "its first %, S or T; dvrctl refuses a PATH whose names would be cut or mangled\n"
             "and says what they would become. The service does not clear the rest of a\n"
             "longer earlier path: clear it first with 'setStoragePath ENC_ID'.\n" +
             kForceHelp,
         [](CommandLine &args) -> Call {
             const int encId = args.integer("ENC_ID");
             const std::optional<std::string> path = args.optionalText("PATH");
             args.finish();
             const bool forced = args.forced();
             return onService([=](const sp<IDVR> &service, Report &report) {
                 guardChannel(*service, encId, forced || !path, [&](ChannelProbe &probe) {
                     return dvrguard::RequestGuard::storagePath(encId, *path, probe.naming(),
                                                                std::time(nullptr));
                 });
                 return finishOnChannel(
                     service, report,
                     service->setStoragePath(encId, path ? path->c_str() : nullptr), encId);
             });
         }});
    commands.push_back(
        {"setFileNameFormat", "ENC_ID [FORMAT [TIME_FORMAT]]",
         "Sets the pattern of output file names and the time format of its %ST and %ET markers.",
         std::string(kEncIdHelp) + kNullTextHelp +
             "The service cuts the text in front of %ST at its first %, S or T and the text\n"
             "in front of %ET at its first %, E or T, keeps a marker at the very start\n"
             "literally, and aborts on a FORMAT or TIME_FORMAT as long as the file-name limit\n"
             "or on a name that long: dvrctl refuses those and says what the names would\n"
             "become ('CAM_FRONT_%ST_%ET.ts' without TIME_FORMAT gives 'CAM_FRON_.ts').\n" +
             kForceHelp,
         [](CommandLine &args) -> Call {
             const int encId = args.integer("ENC_ID");
             const std::optional<std::string> format = args.optionalText("FORMAT");
             const std::optional<std::string> timeFormat = args.optionalText("TIME_FORMAT");
             args.finish();
             const bool forced = args.forced();
             return onService([=](const sp<IDVR> &service, Report &report) {
                 guardChannel(*service, encId, forced || !format, [&](ChannelProbe &probe) {
                     return dvrguard::RequestGuard::fileNameFormat(
                         *format, timeFormat.value_or(""), probe.naming(), std::time(nullptr));
                 });
                 return finishOnChannel(
                     service, report,
                     service->setFileNameFormat(encId, format ? format->c_str() : nullptr,
                                                timeFormat ? timeFormat->c_str() : nullptr),
                     encId);
             });
         }});
    commands.push_back(withId("applySettings", "ENC_ID", "Makes the staged settings current.",
                              &IDVR::applySettings));
    commands.push_back(withId("abandonNewSettings", "ENC_ID", "Drops the staged settings.",
                              &IDVR::abandonNewSettings));
    commands.push_back(
        {"takeSnapshot", "ENC_ID",
         "Takes a stamped camera frame and prints where it lies in physical memory.",
         std::string(kEncIdHelp) + "'dvrctl snapshot' also writes the frame as a PNG file.\n",
         [](CommandLine &args) -> Call {
             const int encId = args.integer("ENC_ID");
             args.finish();
             return onService([encId](const sp<IDVR> &service, Report &report) {
                 dvrspace::SnapshotPA_t snapshot{};
                 const int result = service->takeSnapshot(encId, snapshot);
                 if (result >= 0) {
                     report.add("lumaPA", snapshot.planePA[0]);
                     report.add("chromaPA", snapshot.planePA[1]);
                     report.add("widthPx", static_cast<int>(snapshot.width));
                     report.add("heightPx", static_cast<int>(snapshot.height));
                     report.add("strideBytes", static_cast<int>(snapshot.stride));
                     report.add("timestampUs", std::to_string(snapshot.timestamp));
                 }
                 return finishOnChannel(service, report, result, encId);
             });
         }});
    commands.push_back(withIdAndValue<dvrspace::DVRFileFormat_e>(
        "setOutputFormat", "ENC_ID FORMAT", "Sets the output container.", &IDVR::setOutputFormat,
        [](CommandLine &args) {
            return static_cast<dvrspace::DVRFileFormat_e>(
                args.enumeration("FORMAT", EnumNames::fileFormats()));
        },
        std::string(kEncIdHelp) + "FORMAT is " + EnumNames::fileFormats().choices() +
            " or its number.\n"));
    commands.push_back(withIdAndValue<int>("setBitRate", "ENC_ID MBPS", "Sets the bit rate.",
                                           &IDVR::setBitRate, integerArgument("MBPS")));
    commands.push_back(withIdAndValue<int>("setFrameRate", "ENC_ID FPS", "Sets the frame rate.",
                                           &IDVR::setFrameRate, integerArgument("FPS")));
    commands.push_back(
        {"setResolution", "ENC_ID RESOLUTION",
         "Sets the output resolution; the service accepts only 'default' (the camera's own).",
         std::string(kEncIdHelp) + "RESOLUTION is " + EnumNames::resolutions().choices() +
             " or its number. With a camera attached the\n"
             "service accepts only default: any other answers -2 and leaves the channel's\n"
             "settings lock held, so every later setter on it hangs and the server no longer\n"
             "stops on SIGTERM. dvrctl refuses that request.\n" +
             kForceHelp,
         [](CommandLine &args) -> Call {
             const int encId = args.integer("ENC_ID");
             const auto resolution = static_cast<dvrspace::DVRResolution_e>(
                 args.enumeration("RESOLUTION", EnumNames::resolutions()));
             args.finish();
             const bool forced = args.forced();
             return onService([=](const sp<IDVR> &service, Report &report) {
                 guardChannel(*service, encId, forced, [&](ChannelProbe &probe) {
                     return dvrguard::RequestGuard::setResolution(encId, resolution,
                                                                  probe.cameraAttached());
                 });
                 return finishOnChannel(service, report, service->setResolution(encId, resolution),
                                        encId);
             });
         }});
    commands.push_back(withIdAndValue<int>("setFileLength", "ENC_ID SECONDS",
                                           "Sets the length of one output file.",
                                           &IDVR::setFileLength, integerArgument("SECONDS")));
    commands.push_back(stampSetter("setTimestamp", "Sets the time stamp overlay.",
                                   &IDVR::getTimestampSetting, &IDVR::setTimestamp,
                                   "getTimestampSetting"));
    commands.push_back(stampSetter("setSelfDefinedStamp", "Sets the user stamp overlay.",
                                   &IDVR::getSelfDefinedStampSetting, &IDVR::setSelfDefinedStamp,
                                   "getSelfDefinedStampSetting"));
    commands.push_back({"isSettingChanged", "ENC_ID",
                        "Prints whether staged settings wait for applySettings.", kEncIdHelp,
                        [](CommandLine &args) -> Call {
                            const int encId = args.integer("ENC_ID");
                            args.finish();
                            return onService([encId](const sp<IDVR> &service, Report &report) {
                                report.setResult(service->isSettingChanged(encId));
                                return report.exitStatus();
                            });
                        }});
    commands.push_back(enumGetter("getCurrentState", "Prints the recorder's state.",
                                  &IDVR::getCurrentState, EnumNames::states()));
    commands.push_back(
        {"getEncoderCapability", "ENC_ID", "Prints the encoder capability all recorders share.",
         "The service does not use ENC_ID.\n", [](CommandLine &args) -> Call {
             const int encId = args.integer("ENC_ID");
             args.finish();
             return onService([encId](const sp<IDVR> &service, Report &report) {
                 dvrspace::EncoderDeviceCaps_t caps{};
                 const int result = service->getEncoderCapability(encId, &caps);
                 if (result >= 0) {
                     report.add("fileNameLengthLimitBytes",
                                static_cast<int>(caps.file_name_length_limit));
                     report.add("maxWidthPx", static_cast<int>(caps.max_width));
                     report.add("maxHeightPx", static_cast<int>(caps.max_height));
                     report.add("maxFileLengthS", static_cast<int>(caps.max_file_length));
                     report.add("minFileLengthS", static_cast<int>(caps.min_file_length));
                     report.add("maxBitRateMbps", static_cast<int>(caps.max_bit_rate));
                     report.add("minBitRateMbps", static_cast<int>(caps.min_bit_rate));
                     report.add("maxFrameRateFps", static_cast<int>(caps.max_frame_rate));
                     report.add("minFrameRateFps", static_cast<int>(caps.min_frame_rate));
                 }
                 return finish(report, result);
             });
         }});
    commands.push_back(enumGetter("getOutputFormat", "Prints the output container.",
                                  &IDVR::getOutputFormat, EnumNames::fileFormats()));
    commands.push_back(
        withId("getBitRate", "ENC_ID", "Prints the bit rate in Mbps.", &IDVR::getBitRate));
    commands.push_back(
        withId("getFrameRate", "ENC_ID", "Prints the frame rate.", &IDVR::getFrameRate));
    commands.push_back(enumGetter("getResolution", "Prints the output resolution.",
                                  &IDVR::getResolution, EnumNames::resolutions()));
    commands.push_back(withId("getFileLength", "ENC_ID",
                              "Prints the length of one output file in seconds.",
                              &IDVR::getFileLength));
    commands.push_back(stampGetter("getTimestampSetting", "Prints the time stamp settings.",
                                   &IDVR::getTimestampSetting, false));
    commands.push_back(stampGetter("getSelfDefinedStampSetting", "Prints the user stamp settings.",
                                   &IDVR::getSelfDefinedStampSetting, true));
    commands.push_back({"getCameraCapability", "CAM_ID", "Prints the capability of camera CAM_ID.",
                        "", [](CommandLine &args) -> Call {
                            const int camId = args.integer("CAM_ID");
                            args.finish();
                            return onService([camId](const sp<IDVR> &service, Report &report) {
                                dvrspace::CameraDeviceCaps_t caps{};
                                const int result = service->getCameraCapability(camId, &caps);
                                if (result >= 0) {
                                    report.add("widthPx", static_cast<int>(caps.width));
                                    report.add("heightPx", static_cast<int>(caps.height));
                                    report.add("strideBytes", static_cast<int>(caps.stride));
                                    report.add("format", static_cast<int>(caps.format),
                                               EnumNames::videoFormats());
                                }
                                return finish(report, result);
                            });
                        }});
    commands.push_back({"getAudioCapability", "AUD_ID",
                        "Prints the capability words of audio input AUD_ID.", "",
                        [](CommandLine &args) -> Call {
                            const int audId = args.integer("AUD_ID");
                            args.finish();
                            return onService([audId](const sp<IDVR> &service, Report &report) {
                                dvrspace::AudioDeviceCaps_t caps{};
                                const int result = service->getAudioCapability(audId, &caps);
                                if (result >= 0) {
                                    report.add("caps0", static_cast<int>(caps.caps[0]));
                                    report.add("caps1", static_cast<int>(caps.caps[1]));
                                }
                                return finish(report, result);
                            });
                        }});
    commands.push_back(withIdAndValue<unsigned int>(
        "setSamplingRate", "AUD_ID RATE", "Sets the sampling rate of audio input AUD_ID.",
        &IDVR::setSamplingRate, [](CommandLine &args) { return args.unsignedInteger("RATE"); },
        "RATE must be one that getSupportSamplingRate lists.\n"));
    return commands;
}

}  // namespace

const std::vector<Command> &operationCommands() {
    static const std::vector<Command> commands = makeCommands();
    return commands;
}

}  // namespace dvrctl
