// What both parsers of configuration files share.
#ifndef TARVIO_SRC_UTIL_TQ_LOAD_CONF_CONF_OWNER_H
#define TARVIO_SRC_UTIL_TQ_LOAD_CONF_CONF_OWNER_H

#include "base/owners.h"
#include "tarvio/conf.h"

namespace tarvio {

inline Conf make_conf() {
  Conf conf(allocate<tq_conf>().release());
  if (conf != nullptr) *conf = tq_conf{};
  return conf;
}

}  // namespace tarvio

#endif
