// A SPICE server that asks for a ticket and speaks TLS, too: who gets in, and what the others are
// told. The guest behind it is a real one and runs lumsar-agent.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "integration/vm/support/guest.h"
#include "integration/vm/support/pictures.h"
#include "integration/vm/support/user_side.h"

namespace lumsar::test {
namespace {

using namespace std::chrono_literals;

constexpr const char* kTicket = "opensesame";

// The names of the files are the SPICE server's.
constexpr const char* kMakeCertificates = R"(cd "$0" &&
  openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=authority \
    -keyout ca-key.pem -out ca-cert.pem &&
  openssl req -newkey rsa:2048 -nodes -subj /O=Lumsar/CN=vm.invalid \
    -keyout server-key.pem -out request.pem &&
  echo subjectAltName=IP:127.0.0.1 >extensions &&
  openssl x509 -req -days 2 -in request.pem -extfile extensions \
    -CA ca-cert.pem -CAkey ca-key.pem -CAcreateserial -out server-cert.pem)";

class SecureServer : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    s_setup = GuestSetup::desktop();
    s_setup.spicePort = freePort();
    s_setup.tlsPort = freePort();
    s_setup.ticket = kTicket;
    s_setup.certificates = testDirectory() / "certificates";
    std::filesystem::create_directory(s_setup.certificates);
    Process openssl({"sh", "-c", kMakeCertificates, s_setup.certificates.string()});
    ASSERT_EQ(openssl.wait(), 0) << openssl.output();
    s_guest = std::make_unique<Guest>("secure", testDirectory(), s_setup);
    ASSERT_TRUE(s_guest->boot());
    s_guest->start("vm", "lumsar-agent --v4l2");
  }
  static void TearDownTestSuite() { s_guest.reset(); }

  void SetUp() override { ASSERT_TRUE(m_user.startService()); }
  void TearDown() override {
    m_user.endHost();
    unsetenv("LUMSAR_TICKET");
    if (HasFailure()) m_user.printOutput();
  }

  void startWithTicket(const std::string& address, const std::vector<std::string>& options = {}) {
    setenv("LUMSAR_TICKET", kTicket, 1);
    m_user.startHost(address, options);
  }
  static std::string plain() { return "spice://127.0.0.1:" + std::to_string(s_setup.spicePort); }
  static std::string encrypted(const std::string& host) {
    return "spice+tls://" + host + ":" + std::to_string(s_setup.tlsPort);
  }
  static std::string authority() { return (s_setup.certificates / "ca-cert.pem").string(); }

  bool getsIn() { return m_user.host().expect("VM answered, version 1.1"); }
  bool isTold(const std::string& why) {
    return m_user.host().expect("no channel to the VM: " + why) &&
           !m_user.host().hasNext("is open") &&
           // Of the libraries' lines only warnings are in the log, in its own form.
           m_user.host().countOf("GSpice-WARNING") == 0 && m_user.host().countOf("GLib-GIO") == 0;
  }

  static inline GuestSetup s_setup;
  static inline std::unique_ptr<Guest> s_guest;
  UserSide m_user{testDirectory()};
};

TEST_F(SecureServer, FramesThroughTls) {
  startWithTicket(encrypted("127.0.0.1"), {"--ca-file", authority()});
  ASSERT_TRUE(getsIn());
  ASSERT_TRUE(m_user.command("share 0"));
  ASSERT_TRUE(eventually([] { return s_guest->run("guest_reader /dev/video20 0").status == 0; }));
  const auto read = s_guest->run("guest_reader /dev/video20 5", 40s);
  ASSERT_EQ(read.status, 0) << read.output;
  expectInOrder(pictureHashes(read.output), m_user.picturesSent());
}

TEST_F(SecureServer, TicketFromAFile) {
  const Path file = m_user.directory() / "ticket";
  std::ofstream(file) << kTicket << "\r\n";
  m_user.startHost(plain(), {"--ticket-file", file.string()});
  EXPECT_TRUE(getsIn());
}

TEST_F(SecureServer, NoTicket) {
  m_user.startHost(plain());
  EXPECT_TRUE(isTold("the server refused the ticket"));
}

TEST_F(SecureServer, WrongTicket) {
  setenv("LUMSAR_TICKET", "openbarley", 1);
  m_user.startHost(plain());
  EXPECT_TRUE(isTold("the server refused the ticket"));
}

TEST_F(SecureServer, TicketFileThatCannotBeRead) {
  m_user.startHost(plain(), {"--ticket-file", "/nowhere"});
  EXPECT_EQ(m_user.host().wait(), 1);
  EXPECT_TRUE(m_user.host().expect("cannot read a ticket from /nowhere"));
}

TEST_F(SecureServer, AuthorityThatNobodyKnows) {
  startWithTicket(encrypted("127.0.0.1"));
  EXPECT_TRUE(isTold("TLS failed"));
}

TEST_F(SecureServer, AuthorityThatCannotBeRead) {
  startWithTicket(encrypted("127.0.0.1"), {"--ca-file", "/nowhere"});
  EXPECT_EQ(m_user.host().wait(), 1);
  EXPECT_TRUE(m_user.host().expect("cannot read certificates from /nowhere"));
}

TEST_F(SecureServer, AuthorityWithoutTls) {
  startWithTicket(plain(), {"--ca-file", authority()});
  EXPECT_EQ(m_user.host().wait(), 2);
  EXPECT_TRUE(m_user.host().expect("is not encrypted: use spice+tls://HOST:PORT"));
}

TEST_F(SecureServer, CertificateForAnotherHost) {
  startWithTicket(encrypted("localhost"), {"--ca-file", authority()});
  EXPECT_TRUE(isTold("TLS failed"));
}

TEST_F(SecureServer, CertificateForTheSubjectThatIsExpected) {
  startWithTicket(encrypted("localhost"),
                  {"--ca-file", authority(), "--host-subject", "O=Lumsar,CN=vm.invalid"});
  EXPECT_TRUE(getsIn());
}

TEST_F(SecureServer, CertificateForAnotherSubject) {
  startWithTicket(encrypted("127.0.0.1"),
                  {"--ca-file", authority(), "--host-subject", "O=Lumsar,CN=other.invalid"});
  EXPECT_TRUE(isTold("TLS failed"));
}

}  // namespace
}  // namespace lumsar::test
