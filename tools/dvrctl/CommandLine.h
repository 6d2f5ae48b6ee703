// The words after a command's name, read as typed positional arguments and
// "--name VALUE" options. Every reader throws UsageError naming the argument
// when a word is missing or has the wrong type, so a command is checked
// completely before dvrctl talks to the service. Read options first, then the
// positionals in order, then call finish().
#ifndef DVRCTL_COMMAND_LINE_H
#define DVRCTL_COMMAND_LINE_H

#include <optional>
#include <string>
#include <vector>

#include "EnumNames.h"

namespace dvrctl {

class CommandLine {
public:
    // Takes "--force" and "-f" out of the words; forced() is true with one
    // of them or when forced is given (dvrctl's global --force).
    CommandLine(std::vector<std::string> words, bool forced);

    // True when --help or -h stands anywhere among the words.
    bool wantsHelp() const;
    // Whether the user asked to send a request that a guard rail refuses.
    bool forced() const { return mForced; }

    // Takes "--name VALUE" (or "--name=VALUE") out of the words; empty when
    // absent. Given twice, the last one counts.
    std::optional<std::string> option(const std::string &name);
    // Every value of a repeatable option, in order.
    std::vector<std::string> options(const std::string &name);
    // Takes every "--name" out of the words; true when there was one.
    bool flag(const std::string &name);
    std::optional<int> integerOption(const std::string &name, int min, int max);

    // The next positional word as the given type; name is the argument's
    // name in the usage text.
    int integer(const std::string &name);
    unsigned int unsignedInteger(const std::string &name);
    bool boolean(const std::string &name);
    std::string text(const std::string &name);
    // Absent at the end of the line: nullopt, which dvrctl passes as NULL.
    std::optional<std::string> optionalText(const std::string &name);
    // A number, or one of the names of the enumeration.
    int enumeration(const std::string &name, const EnumNames &names);
    bool hasMore() const;

    // Throws UsageError when words are left over.
    void finish() const;

    // Parsers shared with the option readers.
    static int parseInteger(const std::string &name, const std::string &word, long long min,
                            long long max);
    static bool parseBoolean(const std::string &name, const std::string &word);

private:
    const std::string &next(const std::string &name);

    std::vector<std::string> mWords;
    size_t mNext = 0;
    bool mForced;
};

}  // namespace dvrctl

#endif  // DVRCTL_COMMAND_LINE_H
