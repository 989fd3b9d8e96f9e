#include "spice/port_writer.h"

#include <utility>

namespace lumsar::host {

namespace {

// The library reads nothing while it writes, and of what waits only our own queue knows what may
// be dropped.
constexpr int kMaxOutstanding = 1;

}  // namespace

// One write in flight; the library reads the bytes until its callback.
struct PortWriter::Write {
  std::shared_ptr<PortWriter> writer;
  SendQueue::Bytes bytes;
};

void PortWriter::drain() {
  while (m_port != nullptr && m_outstanding < kMaxOutstanding) {
    auto message = m_queue.pop();
    if (!message) return;
    auto write = std::make_unique<Write>(Write{shared_from_this(), std::move(*message)});
    ++m_outstanding;
    auto& bytes = write->bytes;
    spice_port_channel_write_async(
        m_port, bytes.data(), bytes.size(), nullptr,
        [](GObject* port, GAsyncResult* result, gpointer data) {
          const std::unique_ptr<Write> done(static_cast<Write*>(data));
          g_autoptr(GError) ignored = nullptr;  // a lost channel reports itself
          spice_port_channel_write_finish(SPICE_PORT_CHANNEL(port), result, &ignored);
          --done->writer->m_outstanding;
          done->writer->drain();
        },
        write.release());
  }
}

}  // namespace lumsar::host
