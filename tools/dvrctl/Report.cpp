#include "Report.h"

namespace dvrctl {

Report::Report(std::string command, bool json) : mCommand(std::move(command)), mJson(json) {}

void Report::setResult(int result) {
    mResult = result;
    mPlainResult = std::to_string(result);
    mFailed = result < 0;
}

void Report::setResult(bool result) {
    mResult = result;
    mPlainResult = result ? "true" : "false";
    mFailed = false;
}

void Report::setResult(int result, const EnumNames &names) {
    setResult(result);
    mPlainResult = names.name(result);
    add("name", result, names);
    mFields.back().jsonOnly = true;
}

void Report::setResult(nlohmann::json result, std::string plain) {
    mResult = std::move(result);
    mPlainResult = std::move(plain);
    mFailed = false;
}

void Report::add(const std::string &key, int value) {
    mFields.push_back({key, value, std::to_string(value), false});
}

void Report::add(const std::string &key, unsigned int value) {
    mFields.push_back({key, value, std::to_string(value), false});
}

void Report::add(const std::string &key, bool value) {
    mFields.push_back({key, value, value ? "true" : "false", false});
}

void Report::add(const std::string &key, const std::string &value) {
    mFields.push_back({key, value, value, false});
}

void Report::add(const std::string &key, int value, const EnumNames &names) {
    mFields.push_back({key, enumValue(value, names), names.name(value), false});
}

nlohmann::json Report::enumValue(int value, const EnumNames &names) {
    return names.hasName(value) ? nlohmann::json(names.name(value)) : nlohmann::json(value);
}

void Report::explain(int code, std::string meaning, std::string explanation) {
    mError = {{"kind", "result"},
              {"code", code},
              {"meaning", std::move(meaning)},
              {"message", explanation},
              {"exitStatus", exitStatus()}};
    mExplanation = std::move(explanation);
}

std::string Report::errorText(bool json, const std::string &command, const std::string &kind,
                              const std::string &message, int exitStatus) {
    if (json) {
        nlohmann::json object = nlohmann::json::object();
        object["command"] = command.empty() ? nlohmann::json(nullptr) : nlohmann::json(command);
        object["error"] = {{"kind", kind}, {"message", message}, {"exitStatus", exitStatus}};
        return object.dump() + "\n";
    }
    const std::string prefix = command.empty() ? "" : command + ": ";
    return "dvrctl: " + prefix + message + "\n";
}

void Report::printError(FILE *out, bool json, const std::string &command, const std::string &kind,
                        const std::string &message, int exitStatus) {
    FILE *target = json ? out : stderr;
    fputs(errorText(json, command, kind, message, exitStatus).c_str(), target);
    fflush(target);
}

void Report::print(FILE *out) const {
    if (!mJson && !mExplanation.empty()) {
        fprintf(stderr, "dvrctl: %s: %s\n", mCommand.c_str(), mExplanation.c_str());
        fflush(stderr);
    }
    if (mJson) {
        nlohmann::json object = nlohmann::json::object();
        object["command"] = mCommand;
        object["result"] = mResult;
        for (const Field &field : mFields) {
            object[field.key] = field.value;
        }
        if (!mError.is_null()) {
            object["error"] = mError;
        }
        fprintf(out, "%s\n", object.dump().c_str());
        fflush(out);
        return;
    }
    std::string lines;
    for (const Field &field : mFields) {
        if (!field.jsonOnly) {
            lines += field.key + ": " + field.plain + "\n";
        }
    }
    if (lines.empty()) {
        fprintf(out, "%s\n", mPlainResult.c_str());
    } else {
        fprintf(out, "result: %s\n%s", mPlainResult.c_str(), lines.c_str());
    }
    fflush(out);
}

int Report::exitStatus() const {
    return mFailed ? 1 : 0;
}

}  // namespace dvrctl
