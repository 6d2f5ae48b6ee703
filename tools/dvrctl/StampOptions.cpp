#include "StampOptions.h"

#include <climits>

#include "UsageError.h"

namespace dvrctl {

StampOptions::StampOptions(CommandLine &args) {
    if (const std::optional<std::string> enable = args.option("enable")) {
        mEnabled = CommandLine::parseBoolean("--enable", *enable);
    }
    mX = args.integerOption("x", INT_MIN, INT_MAX);
    mY = args.integerOption("y", INT_MIN, INT_MAX);
    if (const std::optional<std::string> size = args.option("size")) {
        mFontSize = EnumNames::fontSizes().parse(*size);
        if (!mFontSize) {
            mFontSize = CommandLine::parseInteger("--size", *size, INT_MIN, INT_MAX);
        }
    }
    mColor = args.integerOption("color", 0, 255);
    mInterval = args.integerOption("interval", INT_MIN, INT_MAX);
    if (!mEnabled && !mX && !mY && !mFontSize && !mColor && !mInterval) {
        throw UsageError("name at least one stamp field: " + synopsis());
    }
}

std::string StampOptions::synopsis() {
    return "[--enable on|off] [--x N] [--y N] [--size SIZE] [--color N] [--interval MS]";
}

std::string StampOptions::help() {
    return "--x and --y place the stamp in pixels. SIZE is " + EnumNames::fontSizes().choices() +
           "\nor its number (0 to 4). --color is a colour code from 0 to 8; the stamp is drawn\n"
           "in 0 magenta, 1 white, 2 yellow, 3 blue, 4 green, 5 red, 6 cyan, 7 black, 8 not\n"
           "at all (the service draws 8 - code). --interval is the user stamp's refresh\n"
           "interval in ms; the time stamp's is not used.\n";
}

void StampOptions::applyTo(dvrspace::QVStampSettings_t *stamp) const {
    stamp->enabled = mEnabled.value_or(stamp->enabled);
    stamp->x = mX.value_or(stamp->x);
    stamp->y = mY.value_or(stamp->y);
    stamp->fontSize =
        static_cast<dvrspace::QVDVRStampFontSize_e>(mFontSize.value_or(stamp->fontSize));
    stamp->color = static_cast<uint8_t>(mColor.value_or(stamp->color));
    stamp->interval = mInterval.value_or(stamp->interval);
}

}  // namespace dvrctl
