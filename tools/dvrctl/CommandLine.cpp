#include "CommandLine.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>

#include "UsageError.h"

namespace dvrctl {

namespace {

bool isOptionWord(const std::string &word) {
    return word.size() > 2 && word.compare(0, 2, "--") == 0;
}

long long parseWhole(const std::string &name, const std::string &word, long long min,
                     long long max) {
    if (word.empty()) {
        throw UsageError(name + " must be a number, not an empty word");
    }
    char *end = nullptr;
    errno = 0;
    const long long value = std::strtoll(word.c_str(), &end, 10);
    if (*end != '\0') {
        throw UsageError(name + " must be a number, not '" + word + "'");
    }
    if (errno == ERANGE || value < min || value > max) {
        throw UsageError(name + " must lie between " + std::to_string(min) + " and " +
                         std::to_string(max) + ", not " + word);
    }
    return value;
}

}  // namespace

CommandLine::CommandLine(std::vector<std::string> words, bool forced)
    : mWords(std::move(words)), mForced(forced) {
    const size_t before = mWords.size();
    mWords.erase(std::remove(mWords.begin(), mWords.end(), "-f"), mWords.end());
    mForced = flag("force") || mWords.size() != before || mForced;
}

bool CommandLine::wantsHelp() const {
    for (const std::string &word : mWords) {
        if (word == "--help" || word == "-h") {
            return true;
        }
    }
    return false;
}

std::optional<std::string> CommandLine::option(const std::string &name) {
    const std::vector<std::string> values = options(name);
    if (values.empty()) {
        return std::nullopt;
    }
    return values.back();
}

std::vector<std::string> CommandLine::options(const std::string &name) {
    const std::string flag = "--" + name;
    std::vector<std::string> values;
    std::vector<std::string> rest;
    for (size_t i = 0; i < mWords.size(); ++i) {
        const std::string &word = mWords[i];
        if (word == flag) {
            if (i + 1 >= mWords.size()) {
                throw UsageError(flag + " needs a value");
            }
            values.push_back(mWords[++i]);
        } else if (word.compare(0, flag.size() + 1, flag + "=") == 0) {
            values.push_back(word.substr(flag.size() + 1));
        } else {
            rest.push_back(word);
        }
    }
    mWords = std::move(rest);
    return values;
}

bool CommandLine::flag(const std::string &name) {
    const std::string flag = "--" + name;
    const size_t before = mWords.size();
    mWords.erase(std::remove(mWords.begin(), mWords.end(), flag), mWords.end());
    return mWords.size() != before;
}

std::optional<int> CommandLine::integerOption(const std::string &name, int min, int max) {
    const std::optional<std::string> value = option(name);
    if (!value) {
        return std::nullopt;
    }
    return parseInteger("--" + name, *value, min, max);
}

int CommandLine::integer(const std::string &name) {
    return parseInteger(name, next(name), INT_MIN, INT_MAX);
}

unsigned int CommandLine::unsignedInteger(const std::string &name) {
    return static_cast<unsigned int>(parseWhole(name, next(name), 0, UINT_MAX));
}

bool CommandLine::boolean(const std::string &name) {
    return parseBoolean(name, next(name));
}

std::string CommandLine::text(const std::string &name) {
    return next(name);
}

std::optional<std::string> CommandLine::optionalText(const std::string &name) {
    if (!hasMore()) {
        return std::nullopt;
    }
    return next(name);
}

int CommandLine::enumeration(const std::string &name, const EnumNames &names) {
    const std::string &word = next(name);
    if (const std::optional<int> value = names.parse(word)) {
        return *value;
    }
    if (!word.empty() && (std::isdigit(static_cast<unsigned char>(word[0])) || word[0] == '-')) {
        return parseInteger(name, word, INT_MIN, INT_MAX);
    }
    throw UsageError(name + " must be " + names.choices() + " or a number, not '" + word + "'");
}

bool CommandLine::hasMore() const {
    return mNext < mWords.size();
}

void CommandLine::finish() const {
    for (size_t i = mNext; i < mWords.size(); ++i) {
        if (isOptionWord(mWords[i])) {
            throw UsageError("unknown option " + mWords[i]);
        }
    }
    if (hasMore()) {
        throw UsageError("unexpected argument '" + mWords[mNext] + "'");
    }
}

int CommandLine::parseInteger(const std::string &name, const std::string &word, long long min,
                              long long max) {
    return static_cast<int>(parseWhole(name, word, min, max));
}

bool CommandLine::parseBoolean(const std::string &name, const std::string &word) {
    if (word == "on" || word == "true" || word == "1") {
        return true;
    }
    if (word == "off" || word == "false" || word == "0") {
        return false;
    }
    throw UsageError(name + " must be on|off|true|false|1|0, not '" + word + "'");
}

const std::string &CommandLine::next(const std::string &name) {
    // An option left at this point was not one the command knows.
    if (mNext < mWords.size() && isOptionWord(mWords[mNext])) {
        throw UsageError("unknown option " + mWords[mNext]);
    }
    if (mNext >= mWords.size()) {
        throw UsageError("missing argument " + name);
    }
    return mWords[mNext++];
}

}  // namespace dvrctl
