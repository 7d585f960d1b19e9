// What the manager sets in the records of applications and of statuses, beside what the library
// sets.
#ifndef TARVIOD_APP_MARKS_H
#define TARVIOD_APP_MARKS_H

#include <sys/types.h>

#include "tarvio/app.h"

namespace tarviod {

// False when memory runs out.
bool mark_started(tq_app_info& app, pid_t pid);
void mark_stopped(tq_app_info& app);

void set_status(const char* application, int32_t state, const char* detail);

}  // namespace tarviod

#endif
