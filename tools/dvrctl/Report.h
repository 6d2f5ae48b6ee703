// What one command prints: its result and the values it read, as plain text
// for people ("0", the value alone, or "key: value" lines when there are
// fields) or as one JSON object for scripts ({"command": ..., "result": ...,
// fields...}). The exit status follows the result: 1 when it is negative.
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
};

}  // namespace dvrctl

#endif  // DVRCTL_REPORT_H
