// What both parsers of configuration files share.
#ifndef TARVIO_SRC_UTIL_TQ_LOAD_CONF_CONF_OWNER_H
#define TARVIO_SRC_UTIL_TQ_LOAD_CONF_CONF_OWNER_H

#include "tarvio/conf.h"
#include "util/handles.h"

namespace tarvio {

inline constexpr char kLoadConfSource[] = "util/tq_load_conf";

inline Conf make_conf() {
  Conf conf(allocate<tq_conf>().release());
  if (conf != nullptr) *conf = tq_conf{};
  return conf;
}

}  // namespace tarvio

#endif
