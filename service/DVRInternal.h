// Shared by the files that implement DVR (DVR.cpp, DVRControl.cpp,
// DVRClientCallbacks.cpp, DVRSystemEvents.cpp) and by nothing else; not
// installed.
#ifndef DVR_SERVICE_DVR_INTERNAL_H
#define DVR_SERVICE_DVR_INTERNAL_H

#include <map>

namespace dvrspace {
namespace dvr_internal {

// What an id lookup gives for an id that no table lists.
constexpr int kNotFound = -99;

// The table index map gives id, kNotFound when id is unknown.
inline int lookup(const std::map<int, int> &map, int id) {
    const auto it = map.find(id);
    return it == map.end() ? kNotFound : it->second;
}

}  // namespace dvr_internal
}  // namespace dvrspace

#endif  // DVR_SERVICE_DVR_INTERNAL_H
