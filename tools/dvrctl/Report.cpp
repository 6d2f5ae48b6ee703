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
    // An unnamed value stays a number in JSON, so scripts never parse "7".
    nlohmann::json jsonValue = value;
    if (names.hasName(value)) {
        jsonValue = names.name(value);
    }
    mFields.push_back({key, jsonValue, names.name(value), false});
}

void Report::print(FILE *out) const {
    if (mJson) {
        nlohmann::json object = nlohmann::json::object();
        object["command"] = mCommand;
        object["result"] = mResult;
        for (const Field &field : mFields) {
            object[field.key] = field.value;
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
