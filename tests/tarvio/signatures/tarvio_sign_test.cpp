// tarvio sign, pack --sign and verify, beside minisign itself.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "packages/package_file.h"
#include "process/failure.h"
#include "process/work_directory.h"
#include "signatures/file_hash.h"
#include "signatures/minisign.h"
#include "signed_packages.h"
#include "terminal/progress.h"

namespace tarvio_test {
namespace {

using nlohmann::json;
using testing::HasSubstr;

class ClientSign : public SignedPackages {
 protected:
  Ran verify(std::vector<std::string> options = {}) const {
    options.insert(options.begin(), {"verify", file()});
    return run_tarvio(options);
  }
  void expect_good() const {
    const Ran run = verify();
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, file() + " is clock 1.0, signed by key " + id_of("vendor") + "\n");
    EXPECT_EQ(run.errors, "");
  }
  void expect_refused(const std::string& why) const {
    const Ran run = verify();
    EXPECT_EQ(run.status, 6);
    EXPECT_EQ(run.output, "");
    EXPECT_THAT(run.errors, HasSubstr("tarvio: cannot verify '" + file() + "': "));
    EXPECT_THAT(run.errors, HasSubstr(why));
  }
  // Of the signature.
  std::string line(int number) const {
    shell(beside(""), "sed -n " + std::to_string(number) + "p clock.tbx.minisig >line");
    const std::string text = read_file(beside("line"));
    return text.substr(0, text.find('\n'));
  }
};

TEST_F(ClientSign, IsAcceptedByMinisign) {
  const Ran run = run_tarvio({"sign", file(), "--key", key("vendor") + ".key"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.errors, "");
  EXPECT_EQ(run.output, "signed " + file() + " as clock 1.0 with key " + id_of("vendor") + "\n");
  EXPECT_EQ(line(3), "trusted comment: package:clock version:1.0");
  minisign("-V -p vendor.pub -m clock.tbx");
  shell(beside(""), "! minisign -V -p other.pub -m clock.tbx");
  trust();
  expect_good();
}

TEST_F(ClientSign, AcceptsWhatMinisignSigns) {
  trust();
  for (const char* comment : {"package:clock version:1.0", "version:1.0 package:clock built:today",
                              "timestamp:1700000000\tfile:clock.tbx\tpackage:clock\tversion:1.0"}) {
    minisign("-S -W -s vendor.key -m clock.tbx -t '" + std::string(comment) + "'");
    expect_good();
  }
}

TEST_F(ClientSign, SignsWhatItPacks) {
  const Ran run =
      run_tarvio({"pack", sample().path(), "-o", file(), "--sign", key("vendor") + ".key"});
  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_THAT(run.output, HasSubstr(" bytes, signed with key " + id_of("vendor") + "\n"));
  trust();
  expect_good();
  const json packed = json::parse(run_tarvio({"pack", sample().path(), "-o", file(), "--sign",
                                              key("vendor") + ".key", "--json"})
                                      .output);
  EXPECT_EQ(packed["signature"], signature());
  EXPECT_EQ(packed["key_id"], id_of("vendor"));
}

TEST_F(ClientSign, GivesTheSameSignatureAgain) {
  sign();
  const std::string first = read_file(signature());
  pack("1.0");
  sign();
  EXPECT_EQ(read_file(signature()), first);
}

// It would be that of another file.
TEST_F(ClientSign, LeavesNoSignatureBesideAnUnsignedPackage) {
  sign();
  pack("2.0");
  EXPECT_FALSE(std::filesystem::exists(signature()));
  // Nor after a failure the new file without a word.
  std::filesystem::create_directory(signature());
  const Ran run = run_tarvio({"pack", sample().path(), "-o", file()});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, HasSubstr("cannot remove the old signature '" + signature() + "'"));
}

TEST_F(ClientSign, PacksNothingWithoutTheKey) {
  std::filesystem::remove(file());
  const Ran run = run_tarvio({"pack", sample().path(), "-o", file(), "--sign", beside("nowhere")});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, HasSubstr("nowhere' does not exist (2)"));
  EXPECT_FALSE(std::filesystem::exists(file()));
  EXPECT_EQ(run_tarvio({"pack", sample().path(), "-o", file(), "--password-file", "x"}).status, 64);
}

TEST_F(ClientSign, ReportsInJson) {
  trust();
  const json signed_as =
      json::parse(run_tarvio({"sign", file(), "--key", key("vendor") + ".key", "--json"}).output);
  EXPECT_EQ(signed_as, json::array({{{"file", file()},
                                     {"code", 0},
                                     {"message", "Success"},
                                     {"signature", signature()},
                                     {"name", "clock"},
                                     {"version", "1.0"},
                                     {"key_id", id_of("vendor")}}}));
  EXPECT_EQ(json::parse(verify({"--json"}).output), json::array({{{"file", file()},
                                                                  {"code", 0},
                                                                  {"message", "Success"},
                                                                  {"name", "clock"},
                                                                  {"version", "1.0"},
                                                                  {"key_id", id_of("vendor")}}}));
  std::filesystem::remove(signature());
  const json refused = json::parse(verify({"--json"}).output);
  EXPECT_EQ(refused[0]["code"], ENOENT);
  EXPECT_FALSE(refused[0].contains("key_id"));
}

TEST_F(ClientSign, SignsImages) {
  sample().write("tqcontrol", kImageTqControl);
  std::filesystem::remove(sample() / "tqstartapp");
  pack("1.0");
  sign();
  trust();
  expect_good();
}

TEST_F(ClientSign, SignsAPackageWithoutAVersion) {
  const HandMadePackage image("Package: saved\nVersion: \n", kImageTqControl);
  trust();
  const Ran signed_as = run_tarvio({"sign", image.path(), "--key", key("vendor") + ".key"});
  EXPECT_EQ(signed_as.output,
            "signed " + image.path() + " as saved with key " + id_of("vendor") + "\n");
  const Ran run = run_tarvio({"verify", image.path()});
  EXPECT_EQ(run.output, image.path() + " is saved, signed by key " + id_of("vendor") + "\n");
}

TEST_F(ClientSign, CannotNameAPackageWithABlankInItsVersion) {
  const HandMadePackage package("Package: clock\nVersion: 1.0 beta\n");
  const Ran run = run_tarvio({"sign", package.path(), "--key", key("vendor") + ".key"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors,
              HasSubstr("its name or version contains a blank or a control character (22)"));
  EXPECT_FALSE(std::filesystem::exists(package.path() + ".minisig"));
}

TEST_F(ClientSign, GoesOnAfterAFailure) {
  trust();
  sign();
  const Ran run = run_tarvio({"verify", beside("nowhere.tbx"), file()});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors, HasSubstr("nowhere.tbx': No such file or directory (2)"));
  EXPECT_THAT(run.output, HasSubstr("is clock 1.0"));
}

TEST_F(ClientSign, VerifiesWithAKeyThatIsNamed) {
  sign();
  EXPECT_EQ(verify({"--key", key("vendor") + ".pub"}).status, 0);
  trust();
  const Ran run = verify({"--key", key("other") + ".pub"});
  EXPECT_EQ(run.status, 6);
  EXPECT_THAT(run.errors, HasSubstr("was made with unknown key " + id_of("vendor")));
  EXPECT_THAT(verify({"--key", file()}).errors,
              HasSubstr("public key '" + file() + "' is damaged"));
}

TEST_F(ClientSign, RefusesWhatIsNotSignedOrByAnUnknownKey) {
  expect_refused("its signature '" + signature() +
                 "' does not exist; get it from where the package comes from (2)");
  sign();
  expect_refused("its signature '" + signature() + "' was made with unknown key " +
                 id_of("vendor") + kVendorsOnly + " (126)");
  trust("other");
  expect_refused("was made with unknown key");
}

TEST_F(ClientSign, RefusesWhatWasChanged) {
  trust();
  sign();
  constexpr char kWrong[] =
      "' does not match the file; fetch both again "
      "(129)";
  const std::string package = read_file(file());
  for (const std::string& changed : {package + "x", package.substr(0, package.size() - 1),
                                     "x" + package.substr(1), std::string()}) {
    write_file(file(), changed);
    expect_refused(kWrong);
  }
  write_file(file(), package);
  shell(beside(""), "sed -i '3s/1.0/2.0/' clock.tbx.minisig");
  expect_refused(kWrong);

  // The signature of another version.
  pack("2.0");
  sign();
  pack_below_signature("1.0");
  expect_refused(kWrong);
}

// After its size was asked for: what is left does not have the signed hash.
TEST_F(ClientSign, HashesWhatIsLeftOfAFileThatBecameShorter) {
  const client::WorkDirectory directory;
  client::prepare_cryptography();
  const auto hash_of = [&](uint64_t bytes) {
    const client::RegularFile opened = client::open_regular_file(file());
    client::Progress progress(client::Progress::Kind::kNone);
    return client::hash_file(directory, opened.fd.get(), bytes, "", 60, progress);
  };
  const uint64_t size = std::filesystem::file_size(file());
  const client::Hash whole = hash_of(size);
  std::filesystem::resize_file(file(), 100);
  EXPECT_EQ(hash_of(size), hash_of(100));
  EXPECT_NE(hash_of(size), whole);
}

// Two good signatures, of which one lends its comment to the other.
TEST_F(ClientSign, RefusesTheCommentOfAnotherSignature) {
  trust();
  pack("2.0");
  sign();
  shell(beside(""), "tail -n 2 clock.tbx.minisig >comment");
  pack("1.0");
  sign();
  shell(beside(""),
        "head -n 2 clock.tbx.minisig >both && cat comment >>both && "
        "mv both clock.tbx.minisig");
  expect_refused("does not match the file");
}

TEST_F(ClientSign, RefusesASignatureUnderAKeyIdThatIsNotItsOwn) {
  trust();
  sign("other");
  // The id of the key of vendor, with the signature of the other one.
  shell(beside(""),
        "{ echo RUQ= | base64 -d; sed -n 2p vendor.pub | base64 -d | dd bs=1 skip=2 count=8 "
        "status=none; sed -n 2p clock.tbx.minisig | base64 -d | dd bs=1 skip=10 status=none; } "
        ">bytes && sed -i \"2s|.*|$(base64 -w 0 bytes)|\" clock.tbx.minisig");
  expect_refused("does not match the file");
}

TEST_F(ClientSign, RefusesTheLegacyForm) {
  trust();
  minisign("-S -l -W -s vendor.key -m clock.tbx -t 'package:clock version:1.0'");
  expect_refused("has the legacy form, which is refused; sign with 'tarvio sign' (95)");
}

TEST_F(ClientSign, RefusesACommentThatIsNotOfThePackage) {
  trust();
  const auto comment = [this](const std::string& text) {
    minisign("-S -W -s vendor.key -m clock.tbx -t '" + text + "'");
  };
  for (const char* text :
       {"clock 1.0", "package:clock", "version:1.0", "package:clock package:radio version:1.0",
        "package:clock version:1.0 version:1.0", "xpackage:clock version:1.0"}) {
    comment(text);
    expect_refused(
        std::string("the trusted comment of its signature does not name one package and version") +
        kSignAgain + " (129)");
  }
  comment("package:radio version:1.0");
  expect_refused(std::string("its signature is for radio 1.0, but the package is clock 1.0") +
                 kSignAgain);
  comment("package:clock version:1.0.1");
  expect_refused("its signature is for clock 1.0.1, but the package is clock 1.0");
}

TEST_F(ClientSign, RefusesASignatureThatIsTruncated) {
  trust();
  sign();
  const std::string whole = read_file(signature());
  for (size_t size = 0; size + 1 < whole.size(); size += size % 20 == 0 ? 7 : 13) {
    write_file(signature(), whole.substr(0, size));
    expect_refused(size == 0 ? "is empty; fetch it again (74)" : "; fetch it again (74)");
  }
  write_file(signature(), whole.substr(0, whole.size() - 1));
  expect_good();  // only the last line feed is missing
}

TEST_F(ClientSign, RefusesASignatureOfWhichAnyBitIsChanged) {
  sign();
  client::prepare_cryptography();
  const client::PublicKey key = client::public_key_in(read_file(this->key("vendor") + ".pub"));
  const std::string package = read_file(file());
  client::Hash hash;
  crypto_generichash(hash.data(), hash.size(),
                     reinterpret_cast<const unsigned char*>(package.data()), package.size(),
                     nullptr, 0);
  const auto is_good = [&](const std::string& text) {
    try {
      const client::Signature signature = client::signature_in(text);
      return signature.key_id == key.id && client::is_signed_by(key, signature, hash);
    } catch (const client::Failure&) {
      return false;
    }
  };
  std::string text = read_file(signature());
  ASSERT_TRUE(is_good(text));
  // The untrusted comment and the last line feed may be anything.
  for (size_t at = text.find('\n'); at + 1 < text.size(); ++at) {
    for (int bit = 0; bit < 8; ++bit) {
      text[at] = static_cast<char>(text[at] ^ 1 << bit);
      EXPECT_FALSE(is_good(text)) << "byte " << at << ", bit " << bit;
      text[at] = static_cast<char>(text[at] ^ 1 << bit);
    }
  }
}

TEST_F(ClientSign, RefusesASignatureThatIsMoreThanThat) {
  trust();
  sign();
  const std::string whole = read_file(signature());
  write_file(signature(), whole + "more\n");
  expect_refused("is damaged: it goes on after line 4; fetch it again (74)");
  write_file(signature(), std::string(16384, 'x'));
  expect_refused("is too large: it has 16384 bytes or more; fetch it again (27)");
  shell(beside(""), "truncate -s 100G clock.tbx.minisig");
  expect_refused("is too large");
  std::string with_nul = whole;
  with_nul[20] = '\0';
  write_file(signature(), with_nul);
  expect_refused("is damaged: line 1");
  std::filesystem::remove(signature());
  std::filesystem::create_directory(signature());
  expect_refused("is not a regular file");
  std::filesystem::remove(signature());
  ASSERT_EQ(::mkfifo(signature().c_str(), 0600), 0);
  expect_refused("is not a regular file");
}

TEST_F(ClientSign, ReadsLinesThatEndAsThoseOfWindows) {
  trust();
  sign();
  shell(beside(""), R"(sed -i 's/$/\r/' clock.tbx.minisig)");
  expect_good();
}

TEST_F(ClientSign, ShowsNoEscapeSequenceOfASignature) {
  trust();
  minisign("-S -W -s vendor.key -m clock.tbx -t \"$(printf 'package:\\033[2Jclock version:1.0')\"");
  expect_refused("its signature is for \\x1b[2Jclock 1.0, but the package is clock 1.0");
}

}  // namespace
}  // namespace tarvio_test
