#ifndef TARVIO_SRC_LOG_TQ_SYSLOG_BINDING_UNIT_H
#define TARVIO_SRC_LOG_TQ_SYSLOG_BINDING_UNIT_H

namespace tarvio {

// The name under which the files of this folder log.
inline constexpr char kSyslogBindingSource[] = "log/tq_syslog_binding";

}  // namespace tarvio

#endif
