// Whom the RDP host trusts and as whom it logs on.
#include <cstdlib>
#include <fstream>

#include "integration/rdp/rig.h"

namespace {

using namespace lumsar_test;

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
    std::ofstream(path("users")) << "ada:::8846f7eaee8fb117ad06bdd830b7586c:::\n";
    RdpServerSetup setup = serverSetup();
    setup.users = path("users");
    server.emplace(setup);
  }

  void writeCredentials(const std::string& password) {
    std::ofstream(path("credentials")) << "ada\n" << password << "\n";
  }
};

TEST_F(RdpSecurity, UnknownCertificateIsRefusedAndNotTriedAgain) {
  startService();
  startServer();
  startHost({});
  EXPECT_EQ(host->wait(), 1);
  EXPECT_EQ(host->countOf("the server's certificate is not trusted"), 1);
  EXPECT_EQ(server->clients(), 0);
}

TEST_F(RdpSecurity, CertificateWithoutAnyNameIsRefused) {
  const std::string make = "openssl req -x509 -newkey rsa:2048 -nodes -subj / -keyout '" +
                           path("server.key") + "' -out '" + path("server.crt") + "' 2>/dev/null";
  ASSERT_EQ(std::system(make.c_str()), 0);
  startService();
  startServer();
  startHost({});
  EXPECT_EQ(host->wait(), 1);
  EXPECT_EQ(host->countOf("the server's certificate is not trusted: it was issued by \"\""), 1);
  EXPECT_FALSE(proposedFingerprint().empty());
}

TEST_F(RdpSecurity, NamedFingerprintIsTrusted) {
  startService();
  startServer();
  startHost({});
  const std::string fingerprint = proposedFingerprint();
  ASSERT_FALSE(fingerprint.empty());
  host->wait();
  startHost({"--accept-certificate", fingerprint});
  ASSERT_TRUE(server->waitForClient());
  greet();
  EXPECT_EQ(host->stop(), 0);
}

TEST_F(RdpSecurity, AnotherFingerprintIsNot) {
  startService();
  startServer();
  startHost({"--accept-certificate", std::string(64, 'a')});
  EXPECT_EQ(host->wait(), 1);
  EXPECT_EQ(host->countOf("the server's certificate is not trusted"), 1);
}

// Vouched for by an authority of this machine, and under the right name.
TEST_F(RdpSecurity, KnownAuthorityIsTrusted) {
  startService();
  startServer();
  startHost({"--server-name", "test.invalid"}, {{"SSL_CERT_FILE", path("server.crt")}});
  ASSERT_TRUE(server->waitForClient());
  greet();
  EXPECT_EQ(host->stop(), 0);
}

TEST_F(RdpSecurity, KnownAuthorityForAnotherServerIsNot) {
  startService();
  startServer();
  startHost({"--server-name", "other.invalid"}, {{"SSL_CERT_FILE", path("server.crt")}});
  EXPECT_EQ(host->wait(), 1);
  EXPECT_EQ(host->countOf("for \"test.invalid\", not for \"other.invalid\""), 1) << host->output();
}

TEST_F(RdpSecurity, NetworkLevelAuthentication) {
  startService();
  startServerWithUsers();
  writeCredentials("password");
  startHost({"--ignore-certificate", "--credentials", path("credentials")});
  ASSERT_TRUE(server->waitForClient());
  greet();
  EXPECT_EQ(host->stop(), 0);
}

TEST_F(RdpSecurity, CredentialsFromTheEnvironment) {
  startService();
  startServerWithUsers();
  startHost({"--ignore-certificate"}, {{"LUMSAR_USER", "ada"}, {"LUMSAR_PASSWORD", "password"}});
  ASSERT_TRUE(server->waitForClient());
  greet();
  EXPECT_EQ(host->stop(), 0);
}

TEST_F(RdpSecurity, WrongPasswordIsNotTriedForEver) {
  startService();
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
  EXPECT_EQ(host->wait(), 2);
  EXPECT_EQ(host->countOf("LUMSAR_USER is set, and LUMSAR_PASSWORD is not"), 1);
  writeCredentials("");
  startHost({"--credentials", path("credentials")});
  EXPECT_EQ(host->wait(), 1);
  EXPECT_EQ(host->countOf("cannot read credentials"), 1);
}

TEST_F(RdpSecurity, CredentialsFromAnotherSystem) {
  startService();
  startServerWithUsers();
  std::ofstream(path("credentials")) << "ada\r\npassword\r\n";
  startHost({"--ignore-certificate", "--credentials", path("credentials")});
  ASSERT_TRUE(server->waitForClient());
  greet();
  EXPECT_EQ(host->stop(), 0);
}

TEST_F(RdpSecurity, ServerThatWantsAUser) {
  startService();
  startServerWithUsers();
  startHost();
  EXPECT_TRUE(host->says("--credentials")) << host->output();
}

}  // namespace
