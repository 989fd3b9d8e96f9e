// The "list" command: the synchronous call, the host's buffer and its size, every outcome.
// The buffer is compared whole, also behind the answer.
#include "support/plugin/plugin_test.h"

namespace lumsar::test {
namespace {

const std::string kList = R"({"command":"list"})";
const std::string kCameras = R"([{"name":"cam é"}])";

class CameraList : public PluginTest {
 protected:
  void SetUp() override {
    PluginTest::SetUp();
    startSpice();
  }
  void answer(const std::string& text, std::uint32_t param = 0) {
    ipc.syncReply = message(1, text, param);
  }
  int list() {
    m_sizeBefore = size;
    return plugin.Ctrl(kList, buffer.data(), size);
  }
  Lines begin(const std::string& contents = {}) const {
    return concat({{debug("Ctrl: Enter!")},
                   commandLines(kList, m_sizeBefore),
                   {info("HandleGetCameraListCmd: Enter!"),
                    info("HandleGetCameraListCmd: Try to get camera list! Output buffer: " +
                         inQuotes(contents) + " , size: " + std::to_string(m_sizeBefore))}});
  }
  static Lines got(std::size_t bytes) {
    return {debug("IpcSyncCall: get result! size: " + std::to_string(bytes))};
  }
  std::string returned(std::size_t bytes) const {
    return info("HandleGetCameraListCmd: buffer return: " + std::to_string(bytes) +
                " , Output buffer size: " + std::to_string(m_sizeBefore));
  }
  static std::string result(std::size_t length, std::uint32_t code, std::uint32_t type = 1) {
    return info("HandleGetCameraListCmd: Result: type: " + std::to_string(type) +
                " , size:  " + std::to_string(length) + " , code: " + std::to_string(code));
  }
  static Lines delivered(const std::string& text) {
    return {info("HandleGetCameraListCmd: ====Camera list:\n " + inQuotes(text)),
            info("HandleGetCameraListCmd: Leave!")};
  }
  static Lines end() { return {debug("HandleCommand: Leave!"), debug("Ctrl: Leave!")}; }
  static Lines failedEnd(int status) {
    return {warning("HandleGetCameraListCmd failed! error: " + std::to_string(status)),
            warning("Handle command[ " + inQuotes(kList) + " ] Failed!!!"), debug("Ctrl: Leave!")};
  }
  void expectCall() {
    EXPECT_EQ(ipc.take(),
              (Lines{"IsConnected", listRequest(static_cast<unsigned int>(m_sizeBefore))}));
  }
  // The first bytes of the buffer as text, the zero byte included.
  std::string delivery(std::size_t length) const {
    return {buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(length) + 1};
  }

  std::vector<char> buffer = std::vector<char>(256);
  int size = 256;

 private:
  int m_sizeBefore = 0;
};

using LooseCameraList = Loose<CameraList>;

TEST_F(CameraList, IsDelivered) {
  answer(kCameras);
  EXPECT_EQ(list(), 0);
  EXPECT_EQ(log.take(), concat({begin(),
                                got(32 + kCameras.size()),
                                {returned(32 + kCameras.size()), result(kCameras.size(), 0)},
                                delivered(kCameras),
                                end()}));
  expectCall();
  EXPECT_EQ(size, static_cast<int>(kCameras.size()));
  EXPECT_EQ(delivery(kCameras.size()), kCameras + '\0');
}

TEST_F(LooseCameraList, ReplyGoesStraightIntoTheHostsBuffer) {
  answer(kCameras);
  EXPECT_EQ(list(), 0);
  EXPECT_EQ(ipc.takeCalls().at(1).reply, buffer.data());
}

TEST_F(LooseCameraList, BufferContentsAreLoggedUpToTheirZeroByte) {
  const std::string contents = "old \"text\" é";
  std::copy(contents.begin(), contents.end(), buffer.begin());
  answer("[]");
  EXPECT_EQ(list(), 0);
  EXPECT_EQ(
      log.take(),
      concat({begin(contents), got(34), {returned(34), result(2, 0)}, delivered("[]"), end()}));
}

TEST_F(LooseCameraList, BufferOfExactlyTheReplySize) {
  answer(kCameras);
  size = static_cast<int>(32 + kCameras.size());
  buffer.assign(static_cast<std::size_t>(size), 0);
  EXPECT_EQ(list(), 0);
  EXPECT_EQ(size, static_cast<int>(kCameras.size()));
  EXPECT_EQ(delivery(kCameras.size()), kCameras + '\0');
}

TEST_F(LooseCameraList, BytesBehindTheAnswerStay) {
  answer("[1]");
  buffer.assign(64, 'x');
  buffer[0] = 0;
  size = 64;
  EXPECT_EQ(list(), 0);
  // Three bytes moved to the front and a zero byte; then the rest of the reply, then the old bytes.
  const Bytes reply = message(1, "[1]");
  std::vector<char> expected(64, 'x');
  std::copy(reply.begin(), reply.end(), expected.begin());
  std::copy_n("[1]", 4, expected.begin());
  EXPECT_EQ(buffer, expected);
}

TEST_F(LooseCameraList, LongListOverlapsItsOwnHeader) {
  const std::string text(200, 'q');
  answer("a" + text + "z");
  EXPECT_EQ(list(), 0);
  EXPECT_EQ(delivery(202), "a" + text + "z" + '\0');
}

TEST_F(CameraList, BufferOneByteTooSmall) {
  answer(kCameras);
  ipc.syncResult = 8;
  size = static_cast<int>(32 + kCameras.size()) - 1;
  buffer.assign(static_cast<std::size_t>(size), 'x');
  buffer[0] = 0;
  const std::vector<char> before = buffer;
  EXPECT_EQ(list(), 0);
  const std::size_t needed = 32 + kCameras.size();
  EXPECT_EQ(log.take(),
            concat({begin(),
                    {warning("Ipc sync call failed! vd_ipc error:8"),
                     warning("IpcSyncCall: output buffer size too small!"), returned(needed),
                     warning("HandleGetCameraListCmd: Output buffer too small! need size: " +
                             std::to_string(needed))},
                    end()}));
  expectCall();
  EXPECT_EQ(size, static_cast<int>(needed));
  EXPECT_EQ(buffer, before);
}

TEST_F(CameraList, LargerReplyThanTheBufferWithoutAnError) {
  ipc.syncReplySize = 257;
  EXPECT_EQ(list(), 0);
  EXPECT_EQ(log.take(),
            concat({begin(),
                    got(257),
                    {returned(257),
                     warning("HandleGetCameraListCmd: Output buffer too small! need size: 257")},
                    end()}));
  EXPECT_EQ(size, 257);
  expectCall();
}

TEST_F(CameraList, NullBuffer) {
  answer(kCameras);
  int zero = 0;
  EXPECT_EQ(plugin.Ctrl(kList, nullptr, zero), 0);
  EXPECT_EQ(zero, static_cast<int>(32 + kCameras.size()));
  EXPECT_EQ(ipc.take(), (Lines{"IsConnected", listRequest(0)}));
  const Lines lines = log.take();
  EXPECT_EQ(lines.at(4), info("HandleGetCameraListCmd: Try to get camera list! Output buffer: "
                              "\"\" , size: 0"));
  EXPECT_EQ(lines.at(7), warning("HandleGetCameraListCmd: Output buffer too small! need size: " +
                                 std::to_string(zero)));
}

TEST_F(LooseCameraList, NullBufferWithASizeThatWouldDo) {
  answer(kCameras);
  for (const int result : {0, 8}) {
    ipc.syncResult = result;
    int large = 4096;
    EXPECT_EQ(plugin.Ctrl(kList, nullptr, large), 0) << result;
    EXPECT_EQ(large, static_cast<int>(32 + kCameras.size())) << result;
  }
}

TEST_F(LooseCameraList, NegativeSizeCountsAsALargeOne) {
  answer("[]");
  size = -1;
  EXPECT_EQ(list(), 0);
  EXPECT_EQ(size, 2);
  EXPECT_EQ(ipc.take(), (Lines{"IsConnected", listRequest(0xFFFFFFFFU)}));
}

class ReplyTooLarge : public CameraList, public testing::WithParamInterface<int> {};

// The library's own 15 is taken for its 8.
TEST_P(ReplyTooLarge, WithAReplyThatFitsIs15) {
  answer(kCameras);
  ipc.syncResult = GetParam();
  EXPECT_EQ(list(), 15);
  Lines failure{warning("Ipc sync call failed! vd_ipc error:" + std::to_string(GetParam()))};
  if (GetParam() == 8) failure.push_back(warning("IpcSyncCall: output buffer size too small!"));
  EXPECT_EQ(log.take(), concat({begin(),
                                failure,
                                {returned(32 + kCameras.size()), result(kCameras.size(), 0)},
                                delivered(kCameras),
                                failedEnd(15)}));
  expectCall();
  EXPECT_EQ(size, static_cast<int>(kCameras.size()));
  EXPECT_EQ(delivery(kCameras.size()), kCameras + '\0');
}

INSTANTIATE_TEST_SUITE_P(Results, ReplyTooLarge, testing::Values(8, 15));

TEST_F(CameraList, ServicesErrorIs45AndStillDelivers) {
  answer("why", 3);
  EXPECT_EQ(list(), 45);
  EXPECT_EQ(log.take(), concat({begin(),
                                got(35),
                                {returned(35), result(3, 3),
                                 warning("HandleGetCameraListCmd: Get camera list failed! err: 3")},
                                delivered("why"),
                                failedEnd(45)}));
  expectCall();
  EXPECT_EQ(size, 3);
  EXPECT_EQ(delivery(3), std::string("why") + '\0');
}

TEST_F(LooseCameraList, ServicesErrorIsUnsignedAndWinsOver15) {
  answer("", 0xFFFFFFFFU);
  ipc.syncResult = 8;
  EXPECT_EQ(list(), 45);
  const Lines lines = log.take();
  EXPECT_EQ(lines.at(8), result(0, 0xFFFFFFFFU));
  EXPECT_EQ(lines.at(9),
            warning("HandleGetCameraListCmd: Get camera list failed! err: 4294967295"));
}

TEST_F(LooseCameraList, EmptyList) {
  answer("");
  EXPECT_EQ(list(), 0);
  EXPECT_EQ(log.take(),
            concat({begin(), got(32), {returned(32), result(0, 0)}, delivered(""), end()}));
  EXPECT_EQ(size, 0);
  EXPECT_EQ(buffer[0], 0);
}

TEST_F(LooseCameraList, ReplyTypeAndMagicAreNotChecked) {
  ipc.syncReply = Bytes{1, 2, 3, 4} + le32(0xFFFFFFFEU) + le32(2) + Bytes(20) + bytesOf("ok");
  EXPECT_EQ(list(), 0);
  EXPECT_EQ(log.take().at(7), result(2, 0, 0xFFFFFFFEU));
  EXPECT_EQ(delivery(2), std::string("ok") + '\0');
}

TEST_F(LooseCameraList, LengthComesFromTheHeaderNotFromTheReplySize) {
  answer(kCameras);
  ipc.syncReplySize = 33;
  EXPECT_EQ(list(), 0);
  EXPECT_EQ(size, static_cast<int>(kCameras.size()));
  EXPECT_EQ(delivery(kCameras.size()), kCameras + '\0');
}

class CameraListError : public CameraList, public testing::WithParamInterface<int> {};

TEST_P(CameraListError, Is35AndLeavesTheSize) {
  const int error = GetParam();
  ipc.syncResult = error;
  ipc.syncReplySize = 9;
  EXPECT_EQ(list(), 35);
  EXPECT_EQ(log.take(),
            concat({begin(),
                    {warning("Ipc sync call failed! vd_ipc error:" + std::to_string(error)),
                     warning("HandleGetCameraListCmd: IpcSyncCall failed!!! err: " +
                             std::to_string(error))},
                    failedEnd(35)}));
  expectCall();
  EXPECT_EQ(size, 256);
}

INSTANTIATE_TEST_SUITE_P(Errors, CameraListError, testing::Values(3, 1, -1, 16, 45, 2147483647));

TEST_F(LooseCameraList, FurtherKeysAreIgnored) {
  answer("[]");
  EXPECT_EQ(plugin.Ctrl(R"({"command":"list","deviceId":"x"})", buffer.data(), size), 0);
  EXPECT_EQ(ipc.take(), (Lines{"IsConnected", listRequest(256)}));
}

}  // namespace
}  // namespace lumsar::test
