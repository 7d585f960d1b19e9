// Warns before the manager has no descriptor left for a client.
#ifndef TARVIOD_DESCRIPTOR_WARNING_H
#define TARVIOD_DESCRIPTOR_WARNING_H

namespace tarviod {

// Warns when 80 % of the descriptors that the manager may have are open, once until there are fewer
// again.
void watch_descriptors();

}  // namespace tarviod

#endif
