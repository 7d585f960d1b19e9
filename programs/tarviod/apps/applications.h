// The installed applications, as the manager knows them and as their files are.
#ifndef TARVIOD_APPLICATIONS_H
#define TARVIOD_APPLICATIONS_H

#include <optional>

#include "tarvio/app.h"

namespace tarviod {

// Compares what the set-up of the application manager knows with the information directory, since
// the set-up does not report what it could not read (oddity 98). Names packages with damaged files
// and applications that no binding accepts.
//
// Returns their number. None, with the reason on standard error, when something could not be read,
// now or by the set-up: the manager would do without an application until somebody restarts it.
std::optional<int> check_applications();

// The record of the application with exactly this name, or null.
tq_app_info* find_application(const char* name);
inline bool is_known_application(const char* name) { return find_application(name) != nullptr; }

}  // namespace tarviod

#endif
