// What the functions of the library do under faults: rows of calls, each a program run of its own.
#ifndef TARVIO_TESTS_FAULTS_LIBRARY_ROWS_H
#define TARVIO_TESTS_FAULTS_LIBRARY_ROWS_H

#include <string_view>

namespace faults {

// Prints what the calls give, so that it can be compared with that of a run without a fault, and
// frees what it owns. False when a call has reported a failure.
using Calls = bool (*)();

struct Row {
  std::string_view name;
  Calls calls;
};

Calls find_data_row(std::string_view name);
Calls find_system_row(std::string_view name);

}  // namespace faults

#endif
