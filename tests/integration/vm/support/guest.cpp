#include "integration/vm/support/guest.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "support/temporary_directory.h"

namespace lumsar::test {

namespace {

using namespace std::chrono_literals;

constexpr milliseconds kBootTime = 90s;

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

}  // namespace

GuestSetup GuestSetup::desktop() {
  const bool programs = !environment("LUMSAR_GUEST_PROGRAMS").empty();
  return {.kernel = environment("LUMSAR_GUEST_KERNEL"),
          .initramfs = environment("LUMSAR_GUEST_INITRAMFS"),
          .megabytes = programs ? 1536 : 256,
          .display = !environment("LUMSAR_GUEST_DISPLAY").empty(),
          .programs = programs};
}

GuestSetup GuestSetup::user() {
  return {.kernel = environment("LUMSAR_GUEST_KERNEL"),
          .initramfs = environment("LUMSAR_USER_INITRAMFS"),
          .megabytes = 1024,
          .network = true};
}

Path testDirectory() {
  return environment("LUMSAR_VM_TEST_DIRECTORY");
}

int freePort() {
  return RawListener("tcp:0").port();
}

Guest::Guest(std::string name, Path directory, GuestSetup setup)
    : m_name(std::move(name)),
      m_directory(std::move(directory)),
      m_setup(std::move(setup)),
      m_spiceSocket(m_directory / (m_name + ".spice")),
      m_shellSocket(m_directory / (m_name + ".shell")) {}

Guest::~Guest() {
  m_shell.close();
  if (m_qemu) m_qemu->signal(SIGKILL);
}

std::string Guest::spiceOptions() const {
  std::string options = m_setup.spicePort != 0
                            ? "addr=127.0.0.1,port=" + std::to_string(m_setup.spicePort)
                            : "unix=on,addr=" + m_spiceSocket.string();
  if (m_setup.tlsPort != 0) {
    options += ",tls-port=" + std::to_string(m_setup.tlsPort) +
               ",x509-dir=" + m_setup.certificates.string();
  }
  return options + (m_setup.ticket.empty() ? ",disable-ticketing=on" : ",password-secret=ticket");
}

std::vector<std::string> Guest::command() const {
  const std::string port = "org.lumsar.camera.0";
  std::vector<std::string> words{"qemu-system-x86_64"};
  const auto add = [&words](const std::string& option, const std::string& value) {
    words.push_back(option);
    words.push_back(value);
  };
  words.insert(words.end(), {"-nodefaults", "-no-user-config"});
  add("-display", "none");
  add("-machine", "q35");
  add("-accel", "tcg");
  add("-m", std::to_string(m_setup.megabytes));
  add("-kernel", m_setup.kernel.string());
  add("-initrd", m_setup.initramfs.string());
  add("-append", "console=ttyS0 quiet panic=-1");
  add("-serial", "file:" + (m_directory / (m_name + ".console")).string());
  if (!m_setup.ticket.empty()) add("-object", "secret,id=ticket,data=" + m_setup.ticket);
  add("-spice", spiceOptions());
  add("-device", "virtio-serial-pci");
  add("-chardev", "spiceport,id=camera,name=" + port);
  add("-device", "virtserialport,chardev=camera,name=" + port);
  add("-chardev", "socket,id=shell,server=on,wait=off,path=" + m_shellSocket.string());
  add("-device", "virtserialport,chardev=shell,name=org.lumsar.test.0");
  if (m_setup.display) add("-device", "VGA");
  if (m_setup.programs) {
    add("-fsdev", "local,id=programs,path=/,security_model=none,readonly=on,multidevs=remap");
    add("-device", "virtio-9p-pci,fsdev=programs,mount_tag=programs");
    add("-smp", "2");
  }
  if (m_setup.network) {
    add("-netdev", "user,id=net");
    add("-device", "virtio-net-pci,netdev=net,romfile=");
  }
  return words;
}

bool Guest::boot() {
  m_shell.close();
  m_qemu = std::make_unique<Process>(command());
  return awaitShell();
}

bool Guest::awaitShell() {
  m_shell.close();
  if (eventually([this] { return !running() || connectShell(); }, kBootTime) && running()) {
    return true;
  }
  std::fprintf(stderr, "%s does not come up.\n%s%s\n", m_name.c_str(), m_qemu->output().c_str(),
               readFile(m_directory / (m_name + ".console")).c_str());
  return false;
}

// The port's socket exists before the guest does; its shell is there when it answers.
bool Guest::connectShell() {
  if (!m_shell.connected()) m_shell = RawPeer(m_shellSocket.string());
  return m_shell.connected() && run("true", 500ms).status == 0;
}

void Guest::pullThePlug() {
  m_shell.close();
  m_qemu->signal(SIGKILL);
  m_qemu->wait();
}

void Guest::order(const std::string& command) {
  m_shell.send(bytesOf(command + "\n"));
}

Guest::Result Guest::run(const std::string& command, milliseconds time) {
  const std::string number = std::to_string(++m_commands);
  const std::string begin = "<" + number + ">\n";
  const std::string end = "</" + number + " ";
  // Written in two halves, so that an echo of the line is not taken for the answer.
  order("echo '<'" + number + "'>'; { " + command + "\n} </dev/null 2>&1; echo '</'" + number +
        "' '$?");
  std::string text;
  Result result;
  eventually(
      [&] {
        text += textOf(m_shell.read(1U << 20U, 0ms));
        const auto first = text.find(begin);
        const auto last = text.find(end);
        if (first == std::string::npos || last == std::string::npos) return false;
        if (text.find('\n', last) == std::string::npos) return false;
        result.status = std::atoi(text.c_str() + last + end.size());
        result.output = text.substr(first + begin.size(), last - first - begin.size());
        return true;
      },
      time);
  if (result.status < 0) result.output = "no answer: " + text;
  return result;
}

void Guest::start(const std::string& name, const std::string& command) {
  run("(exec " + command + ") >/tmp/" + name + ".log 2>&1 & echo $! >/tmp/" + name + ".pid");
}

bool Guest::expectIn(const std::string& name, const std::string& text, milliseconds time) {
  return eventually(
      [&] { return run("grep -F -q '" + text + "' /tmp/" + name + ".log").status == 0; }, time);
}

}  // namespace lumsar::test
