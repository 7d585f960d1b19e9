#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "support/hooks/fail_alloc.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/log_capture.h"
#include "support/unit_messages.h"
#include "tarvio/log.h"
#include "tarvio/package.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kUnit[] = "package/tq_package_util";

char* text(const char* literal) { return const_cast<char*>(literal); }

// A chain whose start and stop files are not strings: a copy must not read them.
class Source {
 public:
  void add(const char* name, int32_t type = TQ_CATEGORY_APPLICATION,
           int32_t subtype = TQ_SUBCATEGORY_NATIVE) {
    tq_package_info package = {};
    package.name = text(name);
    package.version = text("1.0");
    package.maintainer = text("Halvern");
    package.type = type;
    package.subtype = subtype;
    package.start_app = reinterpret_cast<char*>(1);
    package.stop_app = reinterpret_cast<char*>(1);
    packages_.push_back(package);
    if (packages_.size() > 1) packages_[packages_.size() - 2].next = &packages_.back();
  }
  tq_package_info* head() { return packages_.empty() ? nullptr : &packages_.front(); }

 private:
  std::deque<tq_package_info> packages_;
};

// The result of a copying call; released with all its strings.
class Copies {
 public:
  Copies() : head_(reinterpret_cast<tq_package_info*>(1)) {}  // so that leaving it alone shows
  ~Copies() {
    std::vector<char*> later_versions;
    for (const tq_package_info* package = head_; package != nullptr; package = package->next)
      if (package != head_) later_versions.push_back(package->version);
    tq_free_package_info(head_);
    for (char* version : later_versions) std::free(version);
  }
  Copies(const Copies&) = delete;
  Copies& operator=(const Copies&) = delete;

  tq_package_info** out() { return &head_; }
  const tq_package_info* head() const { return head_; }
  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const tq_package_info* package = head_; package != nullptr; package = package->next)
      names.emplace_back(package->name);
    return names;
  }

 private:
  tq_package_info* head_;
};

class PackageInfo : public testing::Test {
 protected:
  PackageInfo() {
    source_.add("myapp", TQ_CATEGORY_APPLICATION, TQ_SUBCATEGORY_JAVA);
    source_.add("kernel", TQ_CATEGORY_IMAGE, TQ_SUBCATEGORY_OTHER);
    source_.add("application-x", TQ_CATEGORY_APPLICATION, TQ_SUBCATEGORY_NATIVE);
    source_.add("rest", TQ_CATEGORY_OTHER, TQ_SUBCATEGORY_JAVA);
  }

  std::vector<std::string> of_type(uint32_t type, uint32_t subtype) {
    Copies copies;
    EXPECT_EQ(tq_type_filter_package(type, subtype, source_.head(), copies.out()), 0);
    return copies.names();
  }
  std::vector<std::string> with_name(const char* needle) {
    Copies copies;
    EXPECT_EQ(tq_name_filter_package(needle, source_.head(), copies.out()), 0);
    return copies.names();
  }

  Source source_;
};

TEST_F(PackageInfo, IsCopiedWithAllItsFieldsButTheFilesOfItsApplication) {
  tq_package_info* source = source_.head();
  Copies copies;
  EXPECT_EQ(tq_copy_package_info(copies.out(), source, 0), 0);
  const tq_package_info& copy = *copies.head();
  EXPECT_STREQ(copy.name, "myapp");
  EXPECT_STREQ(copy.version, "1.0");
  EXPECT_STREQ(copy.maintainer, "Halvern");
  EXPECT_EQ(copy.type, TQ_CATEGORY_APPLICATION);
  EXPECT_EQ(copy.subtype, TQ_SUBCATEGORY_JAVA);
  EXPECT_EQ(copy.start_app, nullptr);
  EXPECT_EQ(copy.stop_app, nullptr);
  EXPECT_EQ(copy.next, nullptr);
  EXPECT_NE(copy.name, source->name);
  EXPECT_NE(copy.version, source->version);
  EXPECT_NE(copy.maintainer, source->maintainer);
}

TEST_F(PackageInfo, IsCopiedWithNameThenMaintainerThenVersion) {
  Source source;
  source.add("seven77");
  std::vector<size_t> sizes;
  Copies copies;
  {
    const Hook malloc("malloc", [&](size_t size) {
      sizes.push_back(size);
      return std::malloc(size);
    });
    tq_copy_package_info(copies.out(), source.head(), 0);
  }
  EXPECT_THAT(sizes, ElementsAre(sizeof(tq_package_info), sizeof "seven77", sizeof "Halvern",
                                 sizeof "1.0"));
}

TEST_F(PackageInfo, IsCopiedAloneWithoutAll) {
  Copies copies;
  EXPECT_EQ(tq_copy_package_info(copies.out(), source_.head(), 0), 0);
  EXPECT_THAT(copies.names(), ElementsAre("myapp"));
}

TEST_F(PackageInfo, CopiedAloneMayHaveASuccessorThatIsNotThere) {
  Source source;
  source.add("myapp");
  source.head()->next = reinterpret_cast<tq_package_info*>(1);
  Copies copies;
  EXPECT_EQ(tq_copy_package_info(copies.out(), source.head(), 0), 0);
  EXPECT_THAT(copies.names(), ElementsAre("myapp"));
}

TEST_F(PackageInfo, IsCopiedWithTheWholeChainInOrderWithAll) {
  for (const int all : {1, -1, 4711}) {
    Copies copies;
    EXPECT_EQ(tq_copy_package_info(copies.out(), source_.head(), all), 0);
    EXPECT_THAT(copies.names(), ElementsAre("myapp", "kernel", "application-x", "rest"));
  }
}

TEST_F(PackageInfo, ThatIsNullGivesNullWhateverErrnoWas) {
  for (const int all : {0, 1}) {
    Copies copies;
    errno = EIO;
    EXPECT_EQ(tq_copy_package_info(copies.out(), nullptr, all), 0);
    EXPECT_EQ(copies.head(), nullptr);
  }
  Copies by_type;
  errno = EIO;
  EXPECT_EQ(tq_type_filter_package(100, 151, nullptr, by_type.out()), 0);
  EXPECT_EQ(by_type.head(), nullptr);
  Copies by_name;
  errno = EIO;
  EXPECT_EQ(tq_name_filter_package("app", nullptr, by_name.out()), 0);
  EXPECT_EQ(by_name.head(), nullptr);
}

TEST_F(PackageInfo, OfAnyTypeIsEveryPackage) {
  EXPECT_THAT(of_type(100, 151), ElementsAre("myapp", "kernel", "application-x", "rest"));
}

TEST_F(PackageInfo, IsFilteredByCategoryAndSubcategory) {
  EXPECT_THAT(of_type(0, 151), ElementsAre("kernel"));
  EXPECT_THAT(of_type(1, 151), ElementsAre("myapp", "application-x"));
  EXPECT_THAT(of_type(2, 151), ElementsAre("rest"));
  EXPECT_THAT(of_type(100, 1), ElementsAre("myapp", "rest"));
  EXPECT_THAT(of_type(100, 4), ElementsAre("kernel"));
  EXPECT_THAT(of_type(1, 0), ElementsAre("application-x"));
  EXPECT_THAT(of_type(0, 0), IsEmpty());
  EXPECT_THAT(of_type(3, 151), IsEmpty());
  EXPECT_THAT(of_type(151, 100), IsEmpty());
}

TEST_F(PackageInfo, IsFilteredByAPartOfItsName) {
  EXPECT_THAT(with_name("app"), ElementsAre("myapp", "application-x"));
  EXPECT_THAT(with_name("myapp"), ElementsAre("myapp"));
  EXPECT_THAT(with_name(""), ElementsAre("myapp", "kernel", "application-x", "rest"));
  EXPECT_THAT(with_name("App"), IsEmpty());
  EXPECT_THAT(with_name("myapp2"), IsEmpty());
}

TEST_F(PackageInfo, FilteredByNameIsReportedAsDoneOnEveryPath) {
  const LogCapture log(TQ_LOG_DEBUG);
  with_name("app");
  with_name("none");
  Copies of_none;
  tq_name_filter_package("app", nullptr, of_none.out());
  Copies failed;
  const FailAlloc fail(1);
  tq_name_filter_package("app", source_.head(), failed.out());
  tq_name_filter_package(nullptr, source_.head(), failed.out());
  tq_name_filter_package("app", source_.head(), nullptr);
  const std::vector<std::string> once_per_call(6, "debug: dup done");
  EXPECT_EQ(unit_messages(log, kUnit), once_per_call);
}

TEST_F(PackageInfo, CopiedAndFilteredByTypeIsNotReported) {
  const LogCapture log(TQ_LOG_DEBUG);
  Copies copies;
  tq_copy_package_info(copies.out(), source_.head(), 1);
  of_type(100, 151);
  EXPECT_THAT(unit_messages(log, kUnit), IsEmpty());
}

// Fails the first allocation of the call, then the second, and so on. A leak checker sees whether
// the earlier records are freed.
template <typename Call>
int count_failures(Call call, int expected_result) {
  for (int n = 1;; ++n) {
    Copies copies;
    const FailAlloc fail(n);
    const int result = call(copies.out());
    if (!fail.happened()) return n - 1;
    EXPECT_EQ(result, expected_result);
    EXPECT_EQ(copies.head(), nullptr);
  }
}

constexpr int kAllocationsPerCopy = 4;

TEST_F(PackageInfo, CopiedWithoutMemoryIsNullAnd12) {
  const int failures = count_failures(
      [&](tq_package_info** out) { return tq_copy_package_info(out, source_.head(), 1); }, ENOMEM);
  EXPECT_EQ(failures, 4 * kAllocationsPerCopy);
}

TEST_F(PackageInfo, FilteredByTypeWithoutMemoryIsNullAndASuccess) {
  const int failures = count_failures(
      [&](tq_package_info** out) { return tq_type_filter_package(100, 151, source_.head(), out); },
      0);
  EXPECT_EQ(failures, 4 * kAllocationsPerCopy);
}

TEST_F(PackageInfo, FilteredByNameWithoutMemoryIsNullAnd12) {
  const int failures = count_failures(
      [&](tq_package_info** out) { return tq_name_filter_package("app", source_.head(), out); },
      ENOMEM);
  EXPECT_EQ(failures, 2 * kAllocationsPerCopy);
}

TEST_F(PackageInfo, WithoutAStringIsCopiedWithoutIt) {
  tq_package_info source = {};
  source.type = TQ_CATEGORY_OTHER;
  Copies copies;
  EXPECT_EQ(tq_copy_package_info(copies.out(), &source, 1), 0);
  ASSERT_NE(copies.head(), nullptr);
  EXPECT_EQ(copies.head()->name, nullptr);
  EXPECT_EQ(copies.head()->version, nullptr);
  Copies by_name;
  EXPECT_EQ(tq_name_filter_package("", &source, by_name.out()), 0);
  EXPECT_EQ(by_name.head(), nullptr);
}

TEST_F(PackageInfo, NeedsAPlaceForTheCopiesAndANeedle) {
  Copies copies;
  EXPECT_EQ(tq_copy_package_info(nullptr, source_.head(), 1), EINVAL);
  EXPECT_EQ(tq_type_filter_package(100, 151, source_.head(), nullptr), EINVAL);
  EXPECT_EQ(tq_name_filter_package("app", source_.head(), nullptr), EINVAL);
  EXPECT_EQ(tq_name_filter_package(nullptr, source_.head(), copies.out()), EINVAL);
  EXPECT_EQ(copies.head(), nullptr);
}

TEST_F(PackageInfo, ReleasedLeavesTheVersionsAfterTheFirst) {
  tq_package_info* head = nullptr;
  ASSERT_EQ(tq_copy_package_info(&head, source_.head(), 1), 0);
  std::vector<char*> versions;
  for (const tq_package_info* package = head; package != nullptr; package = package->next)
    versions.push_back(package->version);
  std::vector<void*> freed;
  {
    const Hook free("free", [&](void* memory) {
      if (memory != nullptr) freed.push_back(memory);
      std::free(memory);
    });
    EXPECT_EQ(tq_free_package_info(head), 0);
  }
  EXPECT_EQ(std::count(freed.begin(), freed.end(), versions[0]), 1);
  EXPECT_EQ(freed.size(), 4 * 3U + 1U);  // a record, a name and a maintainer each
  for (size_t i = 1; i < versions.size(); ++i) {
    EXPECT_STREQ(versions[i], "1.0");
    std::free(versions[i]);
  }
}

TEST_F(PackageInfo, ThatIsNullMayBeReleased) { EXPECT_EQ(tq_free_package_info(nullptr), 0); }

tq_package_info* new_listed_package(const char* name, tq_package_info* next) {
  auto* package = static_cast<tq_package_info*>(std::malloc(sizeof(tq_package_info)));
  *package = {.name = ::strdup(name),
              .version = ::strdup("1"),
              .type = 0,
              .subtype = 0,
              .maintainer = ::strdup("m"),
              .start_app = ::strdup("start"),
              .stop_app = ::strdup(""),
              .next = next};
  return package;
}

TEST_F(PackageInfo, ListedIsDeletedWithAllItsStrings) {
  tq_package_info* head = new_listed_package("a", new_listed_package("b", nullptr));
  size_t freed = 0;
  {
    const Hook free("free", [&](void* memory) {
      freed += memory != nullptr ? 1 : 0;
      std::free(memory);
    });
    EXPECT_EQ(tq_delete_tq_package_info_recurse(&head), 0);
  }
  EXPECT_EQ(head, nullptr);
  EXPECT_EQ(freed, 2 * 6U);
}

TEST_F(PackageInfo, ListedMayBeNull) {
  tq_package_info* head = nullptr;
  EXPECT_EQ(tq_delete_tq_package_info_recurse(&head), 0);
  EXPECT_EQ(head, nullptr);
  EXPECT_EQ(tq_delete_tq_package_info_recurse(nullptr), 0);
}

}  // namespace
}  // namespace tarvio_test
