// One subcommand per IDVR operation, in interface order, with typed positional
// arguments in the operation's order. Pointer out-parameters are dvrctl's own
// variables and are printed when the call succeeds.
#include <string>

#include "Command.h"
#include "StampOptions.h"
#include "UsageError.h"
#include "WatchingCallback.h"

using android::sp;
using dvrspace::IDVR;

namespace dvrctl {

namespace {

const char *const kEncIdHelp = "ENC_ID is a recorder's encoder id (see getEncoder).\n";
const char *const kNullTextHelp = "An omitted text argument is passed as NULL.\n";

int finish(Report &report, int result) {
    report.setResult(result);
    return report.exitStatus();
}

// An operation without arguments that returns a result code or a count.
template <typename R>
Command withoutArguments(const std::string &name, const std::string &summary, R (IDVR::*method)()) {
    return {name, "", summary, "", [method](CommandLine &args) -> Call {
                args.finish();
                return [method](const sp<IDVR> &service, Report &report) {
                    return finish(report, static_cast<int>(((*service).*method)()));
                };
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
                return [method, id](const sp<IDVR> &service, Report &report) {
                    return finish(report, static_cast<int>(((*service).*method)(id)));
                };
            }};
}

// A getter of one encoder's enumeration-valued setting or state.
template <typename E>
Command enumGetter(const std::string &name, const std::string &summary, E (IDVR::*method)(int),
                   const EnumNames &names) {
    return {name, "ENC_ID", summary, kEncIdHelp, [method, &names](CommandLine &args) -> Call {
                const int encId = args.integer("ENC_ID");
                args.finish();
                return [method, encId, &names](const sp<IDVR> &service, Report &report) {
                    report.setResult(static_cast<int>(((*service).*method)(encId)), names);
                    return report.exitStatus();
                };
            }};
}

// An operation on one id with one int-sized second argument.
template <typename A>
Command withIdAndValue(const std::string &name, const std::string &synopsis,
                       const std::string &summary, dvrspace::DVRResult_e (IDVR::*method)(int, A),
                       std::function<A(CommandLine &)> readValue,
                       const std::string &details = kEncIdHelp) {
    const std::string idName = synopsis.substr(0, synopsis.find(' '));
    return {name, synopsis, summary, details, [=](CommandLine &args) -> Call {
                const int id = args.integer(idName);
                const A value = readValue(args);
                args.finish();
                return [method, id, value](const sp<IDVR> &service, Report &report) {
                    return finish(report, ((*service).*method)(id, value));
                };
            }};
}

std::function<int(CommandLine &)> integerArgument(const std::string &name) {
    return [name](CommandLine &args) { return args.integer(name); };
}

void addStamp(Report &report, const dvrspace::QVStampSettings_t &stamp) {
    report.add("enabled", stamp.enabled);
    report.add("x", static_cast<int>(stamp.x));
    report.add("y", static_cast<int>(stamp.y));
    report.add("fontSize", static_cast<int>(stamp.fontSize), EnumNames::fontSizes());
    report.add("color", static_cast<int>(stamp.color));
    report.add("interval", static_cast<int>(stamp.interval));
}

using StampGetter = dvrspace::DVRResult_e (IDVR::*)(int, dvrspace::QVStampSettings_t *);

Command stampGetter(const std::string &name, const std::string &summary, StampGetter method) {
    return {name, "ENC_ID", summary, kEncIdHelp, [method](CommandLine &args) -> Call {
                const int encId = args.integer("ENC_ID");
                args.finish();
                return [method, encId](const sp<IDVR> &service, Report &report) {
                    dvrspace::QVStampSettings_t stamp{};
                    const int result = ((*service).*method)(encId, &stamp);
                    if (result >= 0) {
                        addStamp(report, stamp);
                    }
                    return finish(report, result);
                };
            }};
}

// Changes only the fields named on the command line: the others are read
// from the service first, so "--enable off" keeps the position.
Command stampSetter(const std::string &name, const std::string &summary, StampGetter getter,
                    StampGetter setter, const std::string &getterName) {
    return {name, "ENC_ID " + StampOptions::synopsis(), summary,
            std::string(kEncIdHelp) + StampOptions::help() + "Fields not given keep the value " +
                getterName + " reports.\n",
            [getter, setter, getterName](CommandLine &args) -> Call {
                const StampOptions options(args);
                const int encId = args.integer("ENC_ID");
                args.finish();
                return [=](const sp<IDVR> &service, Report &report) {
                    dvrspace::QVStampSettings_t stamp{};
                    const int current = ((*service).*getter)(encId, &stamp);
                    if (current < 0) {
                        fprintf(stderr, "dvrctl: %s failed with %d\n", getterName.c_str(), current);
                        return finish(report, current);
                    }
                    options.applyTo(&stamp);
                    return finish(report, ((*service).*setter)(encId, &stamp));
                };
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
                           return [=](const sp<IDVR> &service, Report &report) {
                               return finish(report, ((*service).*method)(pid, cbkId, type));
                           };
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
             return [=](const sp<IDVR> &service, Report &report) {
                 sp<dvrspace::IDVRCallback> callback;
                 if (!null) {
                     callback = new WatchingCallback(WatchingCallback::Answers{}, nullptr);
                 }
                 return finish(report, service->establishCallback(pid, callback));
             };
         }});
    commands.push_back(
        withId("destroyCallback", "PID", "Detaches client PID.", &IDVR::destroyCallback, ""));
    commands.push_back(
        withoutArguments("startRecordAll", "Starts every recorder.", &IDVR::startRecordAll));
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
                            return [=](const sp<IDVR> &service, Report &report) {
                                return finish(report, service->setCameraSources(count, sources));
                            };
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
                            return [encId](const sp<IDVR> &service, Report &report) {
                                report.setResult(service->getAudioRecording(encId));
                                return report.exitStatus();
                            };
                        }});
    commands.push_back(
        withoutArguments("getCameraCount", "Prints the number of cameras.", &IDVR::getCameraCount));
    commands.push_back({"getCamera", "INDEX", "Prints the id and type of camera INDEX.", "",
                        [](CommandLine &args) -> Call {
                            const int index = args.integer("INDEX");
                            args.finish();
                            return [index](const sp<IDVR> &service, Report &report) {
                                int camId = 0;
                                auto type = dvrspace::QV_DVR_DEVICE_TYPE_UNKNOWN;
                                const int result = service->getCamera(index, &camId, &type);
                                if (result >= 0) {
                                    report.add("camId", camId);
                                    report.add("type", static_cast<int>(type),
                                               EnumNames::deviceTypes());
                                }
                                return finish(report, result);
                            };
                        }});
    commands.push_back(withoutArguments("getAudioCount", "Prints the number of audio inputs.",
                                        &IDVR::getAudioCount));
    commands.push_back({"getAudio", "INDEX", "Prints the id of audio input INDEX.", "",
                        [](CommandLine &args) -> Call {
                            const int index = args.integer("INDEX");
                            args.finish();
                            return [index](const sp<IDVR> &service, Report &report) {
                                int audId = 0;
                                const int result = service->getAudio(index, &audId);
                                if (result >= 0) {
                                    report.add("audId", audId);
                                }
                                return finish(report, result);
                            };
                        }});
    commands.push_back(
        {"getSupportSamplingRate", "",
         "Prints the audio sampling rates that both the encoder and the audio inputs support.",
         "Plain output is one line of rates separated by spaces.\n", [](CommandLine &args) -> Call {
             args.finish();
             return [](const sp<IDVR> &service, Report &report) {
                 const std::set<unsigned int> rates = service->getSupportSamplingRate();
                 std::string plain;
                 for (const unsigned int rate : rates) {
                     plain += (plain.empty() ? "" : " ") + std::to_string(rate);
                 }
                 report.setResult(nlohmann::json(rates), plain);
                 return report.exitStatus();
             };
         }});
    commands.push_back(withoutArguments("getRecorderCount", "Prints the number of recorders.",
                                        &IDVR::getRecorderCount));
    commands.push_back({"getEncoder", "INDEX", "Prints the encoder id of recorder INDEX.", "",
                        [](CommandLine &args) -> Call {
                            const int index = args.integer("INDEX");
                            args.finish();
                            return [index](const sp<IDVR> &service, Report &report) {
                                int encId = 0;
                                const int result = service->getEncoder(index, &encId);
                                if (result >= 0) {
                                    report.add("encId", encId);
                                }
                                return finish(report, result);
                            };
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
                           return [=](const sp<IDVR> &service, Report &report) {
                               int index = 0;
                               const int result = ((*service).*method)(encId, &index);
                               if (result >= 0) {
                                   report.add("index", index);
                               }
                               return finish(report, result);
                           };
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
    commands.push_back(withId("startRecord", "ENC_ID", "Starts recording.", &IDVR::startRecord));
    commands.push_back(withId("stopRecord", "ENC_ID", "Stops recording and waits for the end.",
                              &IDVR::stopRecord));
    commands.push_back(withIdAndValue<bool>(
        "autoNextFile", "ENC_ID on|off", "Rolls over to a next file at the file length, or not.",
        &IDVR::autoNextFile, [](CommandLine &args) { return args.boolean("ENABLE"); }));
    const auto withText = [](const std::string &name, const std::string &textName,
                             const std::string &summary, auto method) {
        return Command{name, "ENC_ID [" + textName + "]", summary,
                       std::string(kEncIdHelp) + kNullTextHelp, [=](CommandLine &args) -> Call {
                           const int encId = args.integer("ENC_ID");
                           const std::optional<std::string> text = args.optionalText(textName);
                           args.finish();
                           return [=](const sp<IDVR> &service, Report &report) {
                               return finish(report, ((*service).*method)(
                                                         encId, text ? text->c_str() : nullptr));
                           };
                       }};
    };
    commands.push_back(withText("nextFile", "FILE_NAME",
                                "Closes the current file and goes on in FILE_NAME.",
                                &IDVR::nextFile));
    commands.push_back(withText("setStoragePath", "PATH", "Sets the directory of the output files.",
                                &IDVR::setStoragePath));
    commands.push_back(
        {"setFileNameFormat", "ENC_ID [FORMAT [TIME_FORMAT]]",
         "Sets the pattern of output file names and the time format of its %ST and %ET markers.",
         std::string(kEncIdHelp) + kNullTextHelp, [](CommandLine &args) -> Call {
             const int encId = args.integer("ENC_ID");
             const std::optional<std::string> format = args.optionalText("FORMAT");
             const std::optional<std::string> timeFormat = args.optionalText("TIME_FORMAT");
             args.finish();
             return [=](const sp<IDVR> &service, Report &report) {
                 return finish(report, service->setFileNameFormat(
                                           encId, format ? format->c_str() : nullptr,
                                           timeFormat ? timeFormat->c_str() : nullptr));
             };
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
             return [encId](const sp<IDVR> &service, Report &report) {
                 dvrspace::SnapshotPA_t snapshot{};
                 const int result = service->takeSnapshot(encId, snapshot);
                 if (result >= 0) {
                     report.add("lumaPA", snapshot.planePA[0]);
                     report.add("chromaPA", snapshot.planePA[1]);
                     report.add("width", static_cast<int>(snapshot.width));
                     report.add("height", static_cast<int>(snapshot.height));
                     report.add("stride", static_cast<int>(snapshot.stride));
                     report.add("timestamp", std::to_string(snapshot.timestamp));
                 }
                 return finish(report, result);
             };
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
    commands.push_back(withIdAndValue<dvrspace::DVRResolution_e>(
        "setResolution", "ENC_ID RESOLUTION", "Sets the output resolution.", &IDVR::setResolution,
        [](CommandLine &args) {
            return static_cast<dvrspace::DVRResolution_e>(
                args.enumeration("RESOLUTION", EnumNames::resolutions()));
        },
        std::string(kEncIdHelp) + "RESOLUTION is " + EnumNames::resolutions().choices() +
            " or its number (default: the camera's own).\n"));
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
                            return [encId](const sp<IDVR> &service, Report &report) {
                                report.setResult(service->isSettingChanged(encId));
                                return report.exitStatus();
                            };
                        }});
    commands.push_back(enumGetter("getCurrentState", "Prints the recorder's state.",
                                  &IDVR::getCurrentState, EnumNames::states()));
    commands.push_back(
        {"getEncoderCapability", "ENC_ID", "Prints the encoder capability all recorders share.",
         "The service does not use ENC_ID.\n", [](CommandLine &args) -> Call {
             const int encId = args.integer("ENC_ID");
             args.finish();
             return [encId](const sp<IDVR> &service, Report &report) {
                 dvrspace::EncoderDeviceCaps_t caps{};
                 const int result = service->getEncoderCapability(encId, &caps);
                 if (result >= 0) {
                     report.add("file_name_length_limit",
                                static_cast<int>(caps.file_name_length_limit));
                     report.add("max_width", static_cast<int>(caps.max_width));
                     report.add("max_height", static_cast<int>(caps.max_height));
                     report.add("max_file_length", static_cast<int>(caps.max_file_length));
                     report.add("min_file_length", static_cast<int>(caps.min_file_length));
                     report.add("max_bit_rate", static_cast<int>(caps.max_bit_rate));
                     report.add("min_bit_rate", static_cast<int>(caps.min_bit_rate));
                     report.add("max_frame_rate", static_cast<int>(caps.max_frame_rate));
                     report.add("min_frame_rate", static_cast<int>(caps.min_frame_rate));
                 }
                 return finish(report, result);
             };
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
                                   &IDVR::getTimestampSetting));
    commands.push_back(stampGetter("getSelfDefinedStampSetting", "Prints the user stamp settings.",
                                   &IDVR::getSelfDefinedStampSetting));
    commands.push_back({"getCameraCapability", "CAM_ID", "Prints the capability of camera CAM_ID.",
                        "", [](CommandLine &args) -> Call {
                            const int camId = args.integer("CAM_ID");
                            args.finish();
                            return [camId](const sp<IDVR> &service, Report &report) {
                                dvrspace::CameraDeviceCaps_t caps{};
                                const int result = service->getCameraCapability(camId, &caps);
                                if (result >= 0) {
                                    report.add("width", static_cast<int>(caps.width));
                                    report.add("height", static_cast<int>(caps.height));
                                    report.add("stride", static_cast<int>(caps.stride));
                                    report.add("format", static_cast<int>(caps.format),
                                               EnumNames::videoFormats());
                                }
                                return finish(report, result);
                            };
                        }});
    commands.push_back({"getAudioCapability", "AUD_ID",
                        "Prints the capability words of audio input AUD_ID.", "",
                        [](CommandLine &args) -> Call {
                            const int audId = args.integer("AUD_ID");
                            args.finish();
                            return [audId](const sp<IDVR> &service, Report &report) {
                                dvrspace::AudioDeviceCaps_t caps{};
                                const int result = service->getAudioCapability(audId, &caps);
                                if (result >= 0) {
                                    report.add("caps0", static_cast<int>(caps.caps[0]));
                                    report.add("caps1", static_cast<int>(caps.caps[1]));
                                }
                                return finish(report, result);
                            };
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
