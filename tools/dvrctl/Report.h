// What one command prints: its result and the values it read, as plain text
// for people ("0", the value alone, or "key: value" lines when there are
// fields) or as one JSON object for scripts ({"command": ..., "result": ...,
// fields...}). A negative result carries its explanation ("-3: channel 100 is
// idle: ..."): on stderr in plain text, as "error" in JSON. The exit status
// follows the result: 1 when it is negative. Keys are camelCase with their
// unit in the name (timestampUs, bitRateMbps).
#ifndef DVRCTL_REPORT_H
#define DVRCTL_REPORT_H

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "EnumNames.h"

namespace dvrctl {

class Report {
public:
    Report(std::string command, bool json);

    bool json() const { return mJson; }
    const std::string &command() const { return mCommand; }

    // A DVRResult_e or an int getter's value.
    void setResult(int result);
    void setResult(bool result);
    // An enumeration getter: the number in "result", the name in plain text.
    void setResult(int result, const EnumNames &names);
    // A result that is not a number (a set, a table); it never fails.
    void setResult(nlohmann::json result, std::string plain);

    void add(const std::string &key, int value);
    void add(const std::string &key, unsigned int value);
    void add(const std::string &key, bool value);
    void add(const std::string &key, const std::string &value);
    void add(const std::string &key, int value, const EnumNames &names);

    // Why the result is negative, one line: "-3: channel 100 is idle: ...".
    void explain(int code, std::string meaning, std::string explanation);

    // Prints an error that ends the command before or instead of a result
    // (kind "usage", "refused", "unreachable", "timeout", "failed") with the
    // exit status it leads to: plain "dvrctl: COMMAND: MESSAGE" on stderr, or
    // one JSON object on out. command may be empty.
    static void printError(FILE *out, bool json, const std::string &command,
                           const std::string &kind, const std::string &message, int exitStatus);
    // The same as text, for printing later from a signal handler.
    static std::string errorText(bool json, const std::string &command, const std::string &kind,
                                 const std::string &message, int exitStatus);

    // The JSON form of an enumeration's value: its name, or the number when
    // it has none, so scripts never parse "7".
    static nlohmann::json enumValue(int value, const EnumNames &names);

    // Whether a result was set; commands that print for themselves set none.
    bool hasResult() const { return !mResult.is_null(); }
    // Prints to out, flushed.
    void print(FILE *out) const;
    // 1 for a negative numeric result, else 0.
    int exitStatus() const;

private:
    struct Field {
        std::string key;
        nlohmann::json value;
        std::string plain;
        bool jsonOnly;  // the plain form shows it already as the result
    };

    std::string mCommand;
    bool mJson;
    nlohmann::json mResult;
    std::string mPlainResult;
    bool mFailed = false;
    std::vector<Field> mFields;
    nlohmann::json mError;  // null unless explain() was called
    std::string mExplanation;
};

}  // namespace dvrctl

#endif  // DVRCTL_REPORT_H
