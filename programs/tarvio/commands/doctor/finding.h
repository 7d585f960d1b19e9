// What tarvio doctor finds out: rows of a table.
#ifndef TARVIO_CLIENT_COMMANDS_DOCTOR_FINDING_H
#define TARVIO_CLIENT_COMMANDS_DOCTOR_FINDING_H

#include <string>
#include <vector>

#include "process/failure.h"
#include "process/work_directory.h"

namespace client {

// Failed: something that the device needs is not there, or cannot be checked.
enum class CheckStatus { kOk, kWarning, kFailed };

struct Finding {
  std::string check;
  CheckStatus status = CheckStatus::kOk;
  std::string found;
  std::string remedy = {};  // empty when it is ok
};

using Findings = std::vector<Finding>;

// The row of a check that could not be done.
Finding not_checked(const std::string& check, const Failure& failure);

struct Examination {
  const WorkDirectory* directory = nullptr;  // where tools run; null when there can be none
  double seconds = 0;                        // for each tool, and for the manager
  std::string backup_directory;              // empty when no one was named
};

// The checks, each of one subject. A Failure that one throws becomes a failed row.
Findings check_tools(const Examination& examination);
Findings check_isolation(const Examination& examination);
Findings check_root(const Examination& examination);
Findings check_packages(const Examination& examination);
Findings check_policy(const Examination& examination);
Findings check_keys(const Examination& examination);
Findings check_areas(const Examination& examination);
Findings check_backup_space(const Examination& examination);
Findings check_socket(const Examination& examination);
Findings check_manager(const Examination& examination);
Findings check_log(const Examination& examination);

// The version that a tool reports, such as "1.35.0"; empty when it reports none.
std::string version_of_tool(const Examination& examination, const std::string& name);

inline constexpr char kRunAsRoot[] = "run tarvio as root";

}  // namespace client

#endif
