#include "protocol.h"

namespace tarviod {

// Here, since each place that makes one would hold a copy of all its bytes.
AppSetup::AppSetup() = default;
KeeperRequest::KeeperRequest() = default;

}  // namespace tarviod
