// One fault of a program: its n-th allocation or its n-th call that can fail, in one of its
// processes (fault_record.h). As text "alloc:17" or "call:3:1", the latter in its first child.
#ifndef TARVIO_TESTS_FAULTS_FAULT_H
#define TARVIO_TESTS_FAULTS_FAULT_H

#include <cstdint>
#include <optional>
#include <string>

#include "faults/fault_record.h"

namespace faults {

struct Fault {
  uint32_t kind = FAULT_ALLOC;
  uint32_t number = 0;  // 0 for none
  std::string process = "0";
};

std::optional<Fault> parse_fault(const std::string& text);
std::string text_of(const Fault& fault);

}  // namespace faults

#endif
