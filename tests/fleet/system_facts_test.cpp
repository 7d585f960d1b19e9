// What a board says of its root file system.
#include "board/system_facts.h"

#include <gtest/gtest.h>

namespace tarvio_test {
namespace {

using agent::Json;
using agent::root_facts;

TEST(RootFacts, AreThoseOfTheKernelAndOfTheMount) {
  const Json facts = root_facts("console=ttyS0 root=/dev/mtdblock4 rw rootfstype=jffs2\n",
                                "rootfs / rootfs rw 0 0\n/dev/root / jffs2 rw,relatime 0 0\n"
                                "tmpfs /tmp tmpfs ro 0 0\n");
  EXPECT_EQ(facts.dump(),
            R"({"kernel":"/dev/mtdblock4","device":"/dev/root","type":"jffs2","writable":true})");
}

TEST(RootFacts, MayBeThoseOfAFileSystemThatIsReadOnly) {
  EXPECT_EQ(root_facts("root=ubi0:rootfs", "ubi0:rootfs / ubifs ro,relatime 0 0\n").dump(),
            R"({"kernel":"ubi0:rootfs","device":"ubi0:rootfs","type":"ubifs","writable":false})");
}

TEST(RootFacts, AreNullWhereTheyAreNotKnown) {
  EXPECT_EQ(root_facts("", "nonsense\n").dump(),
            R"({"kernel":null,"device":null,"type":null,"writable":null})");
}

}  // namespace
}  // namespace tarvio_test
