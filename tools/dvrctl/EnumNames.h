// The readable names of one enumeration's values, as dvrctl accepts and
// prints them ("avi", "1080p", "recording"). The tables of the service's
// enumerations are the static members below.
#ifndef DVRCTL_ENUM_NAMES_H
#define DVRCTL_ENUM_NAMES_H

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace dvrctl {

class EnumNames {
public:
    explicit EnumNames(std::vector<std::pair<int, std::string>> names);

    // The value named word; nullopt for an unknown name.
    std::optional<int> parse(const std::string &word) const;
    // The name of value, or the value as a number when it has none.
    std::string name(int value) const;
    bool hasName(int value) const;
    // "a|b|c", for usage texts.
    std::string choices() const;

    static const EnumNames &fileFormats();       // DVRFileFormat_e
    static const EnumNames &resolutions();       // DVRResolution_e
    static const EnumNames &callbackTypes();     // DVRCbkObjType_e
    static const EnumNames &callbackCommands();  // DVR_CbkCmd_e
    static const EnumNames &states();            // DVRStm_e
    static const EnumNames &deviceTypes();       // QVDVRDeviceType_e
    static const EnumNames &fontSizes();         // QVDVRStampFontSize_e
    static const EnumNames &videoFormats();      // DVRVideoFormat_e

private:
    std::vector<std::pair<int, std::string>> mNames;
};

}  // namespace dvrctl

#endif  // DVRCTL_ENUM_NAMES_H
