// The stamp fields a user names on the command line of setTimestamp and
// setSelfDefinedStamp: --enable, --x, --y, --size, --color, --interval.
// Fields not named are left as they are in the record given to applyTo().
#ifndef DVRCTL_STAMP_OPTIONS_H
#define DVRCTL_STAMP_OPTIONS_H

#include <optional>
#include <string>

#include "CommandLine.h"
#include "DVRTypes.h"

namespace dvrctl {

class StampOptions {
public:
    // Takes the options out of args; UsageError when a value is malformed or
    // no field is named at all.
    explicit StampOptions(CommandLine &args);

    static std::string synopsis();
    static std::string help();

    void applyTo(dvrspace::QVStampSettings_t *stamp) const;

    const std::optional<int> &fontSize() const { return mFontSize; }
    const std::optional<int> &color() const { return mColor; }

private:
    std::optional<bool> mEnabled;
    std::optional<int> mX;
    std::optional<int> mY;
    std::optional<int> mFontSize;
    std::optional<int> mColor;
    std::optional<int> mInterval;
};

}  // namespace dvrctl

#endif  // DVRCTL_STAMP_OPTIONS_H
