// The names of IDVR's operations in interface order, the order that fixes
// their transaction codes: a test that walks every operation takes them from
// here.
#ifndef DVR_TEST_INTERFACE_IDVR_OPERATIONS_H
#define DVR_TEST_INTERFACE_IDVR_OPERATIONS_H

#include <string>
#include <vector>

namespace dvrtest {

const std::vector<std::string> &idvrOperations();

}  // namespace dvrtest

#endif  // DVR_TEST_INTERFACE_IDVR_OPERATIONS_H
