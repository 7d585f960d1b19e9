// What the kernel keeps tools from that read packages.
#include "commands/doctor/finding.h"
#include "process/child.h"

namespace client {

Findings check_isolation(const Examination& examination) {
  constexpr char kCheck[] = "isolation";
  if (examination.directory == nullptr) {
    return {{.check = kCheck,
             .status = CheckStatus::kWarning,
             .found = "needs a work directory to be checked",
             .remedy = "see 'work directory' above"}};
  }
  const std::string freedoms =
      run_job(*examination.directory, Rights::to_read("", 0), "the check of the isolation",
              freedoms_left, examination.seconds)
          .result;
  if (freedoms.empty()) {
    return {{.check = kCheck,
             .found =
                 "what reads packages has no privileges and no sockets, and writes in the work "
                 "directory only"}};
  }
  return {{.check = kCheck,
           .status = CheckStatus::kWarning,
           .found = "the kernel does not keep what reads packages from " + freedoms,
           .remedy = "use Linux 5.13 or later with CONFIG_SECCOMP_FILTER, and with "
                     "CONFIG_SECURITY_LANDLOCK and landlock in CONFIG_LSM; a container or service "
                     "must not refuse prctl, capset and Landlock"}};
}

}  // namespace client
