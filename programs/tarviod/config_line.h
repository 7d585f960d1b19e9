// Where in a configuration file something stands.
#ifndef TARVIOD_CONFIG_LINE_H
#define TARVIOD_CONFIG_LINE_H

#include <stdio.h>

namespace tarviod {

// The number of the last line with a key, as tq_conf_open2 reads and counts lines; of the first
// line that has no colon but needs one when the key is null; 0 when there is none.
int line_of(FILE* file, const char* key);

}  // namespace tarviod

#endif
