// Whom the RDP host trusts and as whom it logs on.
#include <cstdlib>

#include "integration/rdp/rig.h"

namespace lumsar::test {
namespace {

class RdpSecurity : public Rig {
 protected:
  // The fingerprint that the host proposes when it refuses the server.
  std::string proposedFingerprint() {
    const std::string mark = "--accept-certificate ";
    if (!host->says(mark)) return {};
    const std::string output = host->output();
    const auto begin = output.find(mark) + mark.size();
    return output.substr(begin, output.find_first_of(" \n", begin) - begin);
  }

  // "password", as such files want it.
  void startServerWithUsers() {
    startService();
    writeFile(path("users"), "ada:::8846f7eaee8fb117ad06bdd830b7586c:::\n");
    RdpServerSetup setup = serverSetup();
    setup.users = path("users");
    server.emplace(setup);
  }

  void writeCredentials(const std::string& password) {
    writeFile(path("credentials"), "ada\n" + password + "\n");
  }
};

TEST_F(RdpSecurity, UnknownCertificateIsRefusedAndNotTriedAgain) {
  start({});
  expectEnd(1, "the server's certificate is not trusted");
  EXPECT_EQ(server->clients(), 0);
}

TEST_F(RdpSecurity, CertificateWithoutAnyNameIsRefused) {
  const std::string make = "openssl req -x509 -newkey rsa:2048 -nodes -subj / -keyout '" +
                           path("server.key") + "' -out '" + path("server.crt") + "' 2>/dev/null";
  ASSERT_EQ(std::system(make.c_str()), 0);
  start({});
  expectEnd(1, "the server's certificate is not trusted: it was issued by \"\"");
  EXPECT_FALSE(proposedFingerprint().empty());
}

TEST_F(RdpSecurity, NamedFingerprintIsTrusted) {
  start({});
  const std::string fingerprint = proposedFingerprint();
  ASSERT_FALSE(fingerprint.empty());
  host->wait();
  startHost({"--accept-certificate", fingerprint});
  beginSession();
}

TEST_F(RdpSecurity, AnotherFingerprintIsNot) {
  start({"--accept-certificate", std::string(64, 'a')});
  expectEnd(1, "the server's certificate is not trusted");
}

// Vouched for by an authority of this machine, and under the right name.
TEST_F(RdpSecurity, KnownAuthorityIsTrusted) {
  start({"--server-name", "test.invalid"}, {{"SSL_CERT_FILE", path("server.crt")}});
  beginSession();
}

TEST_F(RdpSecurity, KnownAuthorityForAnotherServerIsNot) {
  start({"--server-name", "other.invalid"}, {{"SSL_CERT_FILE", path("server.crt")}});
  expectEnd(1, "for \"test.invalid\", not for \"other.invalid\"");
}

TEST_F(RdpSecurity, NetworkLevelAuthentication) {
  startServerWithUsers();
  writeCredentials("password");
  startHost({"--ignore-certificate", "--credentials", path("credentials")});
  beginSession();
}

TEST_F(RdpSecurity, CredentialsFromTheEnvironment) {
  startServerWithUsers();
  startHost({"--ignore-certificate"}, {{"LUMSAR_USER", "ada"}, {"LUMSAR_PASSWORD", "password"}});
  beginSession();
}

TEST_F(RdpSecurity, WrongPasswordIsNotTriedForEver) {
  startServerWithUsers();
  writeCredentials("wrong");
  startHost({"--ignore-certificate", "--credentials", path("credentials")});
  EXPECT_EQ(host->wait(), 1);
  EXPECT_GE(host->countOf("does not know user \"ada\" with this password"), 1) << host->output();
  EXPECT_EQ(server->clients(), 0);
  EXPECT_LE(server->connections(), 3) << "so many could lock the account";
}

TEST_F(RdpSecurity, UserWithoutAPassword) {
  startHost({}, {{"LUMSAR_USER", "ada"}});
  expectEnd(2, "LUMSAR_USER is set, and LUMSAR_PASSWORD is not");
  writeCredentials("");
  startHost({"--credentials", path("credentials")});
  expectEnd(1, "cannot read credentials");
}

TEST_F(RdpSecurity, CredentialsFromAnotherSystem) {
  startServerWithUsers();
  writeFile(path("credentials"), "ada\r\npassword\r\n");
  startHost({"--ignore-certificate", "--credentials", path("credentials")});
  beginSession();
}

TEST_F(RdpSecurity, ServerThatWantsAUser) {
  startServerWithUsers();
  startHost();
  EXPECT_TRUE(host->says("--credentials")) << host->output();
}

}  // namespace
}  // namespace lumsar::test
