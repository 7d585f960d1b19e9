// One macro per level. The unit that includes this defines `kSource`, the name it logs under.
#ifndef TARVIO_SRC_UTIL_LOG_MACROS_H
#define TARVIO_SRC_UTIL_LOG_MACROS_H

#include "tarvio/log.h"

#define TQ_DEBUG(...) tq_log_func(TQ_LOG_DEBUG, kSource, __LINE__, __VA_ARGS__)
#define TQ_INFO(...) tq_log_func(TQ_LOG_INFO, kSource, __LINE__, __VA_ARGS__)
#define TQ_WARNING(...) tq_log_func(TQ_LOG_WARNING, kSource, __LINE__, __VA_ARGS__)
#define TQ_ERROR(...) tq_log_func(TQ_LOG_ERROR, kSource, __LINE__, __VA_ARGS__)

#endif
