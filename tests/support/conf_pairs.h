// The pairs of a configuration object, for a test to compare.
#ifndef TARVIO_TESTS_SUPPORT_CONF_PAIRS_H
#define TARVIO_TESTS_SUPPORT_CONF_PAIRS_H

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tarvio/conf.h"

namespace tarvio_test {

struct CloseConf {
  void operator()(tq_conf* conf) const { tq_conf_close(conf); }
};
using Conf = std::unique_ptr<tq_conf, CloseConf>;

using Pairs = std::vector<std::pair<std::string, std::string>>;

inline Pairs pairs_of(const Conf& conf) {
  Pairs pairs;
  for (int32_t index = 0; index < tq_count_variables(conf.get()); ++index) {
    pairs.emplace_back(tq_find_name(conf.get(), index), tq_find_value(conf.get(), index));
  }
  return pairs;
}

}  // namespace tarvio_test

#endif
