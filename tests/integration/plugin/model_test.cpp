// Random sequences of steps by host, camera service and VM: the plug-in and a model of it must
// agree about everything that can be seen. A sequence on which they differ is cut down to a short
// one before it is shown.
// Each sequence runs in a child process, for the plug-in has one object per process.
#include <sys/wait.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <random>

#include "support/plugin/plugin_model.h"
#include "support/plugin/plugin_test.h"

namespace lumsar::test {
namespace {

using Steps = std::vector<Step>;

std::optional<unsigned int> numberBehind(const Lines& lines, const std::string& text) {
  for (const std::string& line : lines) {
    const std::size_t at = line.find(text);
    if (at == std::string::npos) continue;
    unsigned int number = 0;
    std::from_chars(line.data() + at + text.size(), line.data() + line.size(), number);
    return number;
  }
  return std::nullopt;
}

class ModelTest : public PluginTest {
 protected:
  // Empty when plug-in and model agree all the way, else the step and both behaviours. To be called
  // once in a process.
  std::string run(const Steps& steps) {
    PluginModel model;
    model.closingIsForgotten = closingIsForgotten;
    for (const Step& step : steps) {
      Behaviour seen = take(step, model);
      const Behaviour expected = model.expect(step, newToken(seen));
      // Event threads may still be on their way.
      if (!expected.eventLog.empty()) log.waitFor(expected.eventLog.back());
      seen.eventLog = log.takeElsewhere();
      for (const Posted& event : host.takeEvents(expected.events.size())) {
        seen.events.push_back(std::to_string(event.event) + " " +
                              (event.hasData ? show(event.data) : "null"));
      }
      if (seen != expected) {
        return step.text() + "\nexpected:\n" + expected.text() + "seen:\n" + seen.text();
      }
    }
    return {};
  }

  // run() in a child process.
  std::string runApart(const Steps& steps) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
      const std::string difference = run(steps);
      const auto written = write(ends[1], difference.data(), std::min(difference.size(), kShown));
      _exit(written < 0 ? 1 : 0);
    }
    close(ends[1]);
    std::string difference(kShown, '\0');
    const ssize_t size = read(ends[0], difference.data(), difference.size());
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (status != 0) return "the process ended with status " + std::to_string(status);
    difference.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    return difference;
  }

  // The shortest sequence that can be made by leaving out steps and still shows a difference.
  Steps shortened(Steps steps) {
    for (std::size_t part = steps.size() / 2; part > 0; part /= 2) {
      for (std::size_t at = 0; at + part <= steps.size();) {
        Steps fewer = steps;
        const auto begin = fewer.begin() + static_cast<std::ptrdiff_t>(at);
        fewer.erase(begin, begin + static_cast<std::ptrdiff_t>(part));
        if (runApart(fewer).empty()) {
          at += part;
        } else {
          steps = std::move(fewer);
        }
      }
    }
    return steps;
  }

  static Steps randomSteps(unsigned seed, std::size_t count) {
    std::mt19937 random(seed);
    std::uniform_int_distribution<unsigned> action(0, kActions - 1);
    std::uniform_int_distribution<unsigned> choice(0, 100'000);
    Steps steps(count);
    for (Step& step : steps) {
      step = {static_cast<Action>(action(random)), choice(random)};
      // Sessions have to last for something to happen in them.
      if (step.action == Action::DeInit && step.choice % 4 != 0) step.action = Action::VmHello;
      if (step.action == Action::RdpDeInit && step.choice % 4 != 0) step.action = Action::Command;
    }
    return steps;
  }

  bool closingIsForgotten = false;

 private:
  static constexpr std::size_t kShown = 16'384;

  Behaviour take(const Step& step, const PluginModel& model) {
    Behaviour seen;
    seen.status = carryOut(step, model);
    seen.log = withoutSourceLines(log.takeHere());
    seen.ipc = ipc.take();
    seen.sent = host.takeBytes();
    return seen;
  }

  // The token of the HELLO that was made just now, if one was.
  std::optional<unsigned int> newToken(const Behaviour& seen) {
    for (const std::string text : {"Token: ", "token: "}) {
      if (const auto token = numberBehind(seen.log, text)) return token;
    }
    const std::string renewed = critical("RdpSendHello: RDP send data callback is NULL!!!");
    if (std::ranges::find(seen.log, renewed) == seen.log.end()) return std::nullopt;
    // Made, but not sent: a wrong one brings it to light.
    handle(message(VmHello{.token = 0xFFFF}));
    return numberBehind(log.takeHere(), "Own[");
  }

  std::optional<int> carryOut(const Step& step, const PluginModel& model) {
    switch (step.action) {
      case Action::Init: {
        const InitWith with = initWith(step);
        const SpiceSendFunc send = host.sendFunc();
        const SpicePostEventFunc post = host.postEventFunc();
        return plugin.Init(with == InitWith::NoSend ? SpiceSendFunc() : send,
                           with == InitWith::NoEvent ? SpicePostEventFunc() : post,
                           with == InitWith::NoVmId ? "" : vmIdOf(step), configOf(with));
      }
      case Action::RdpInit:
        return rdpInit(initWith(step) == InitWith::NoVmId ? nullptr : vmIdOf(step).c_str());
      case Action::ChannelEvent:
        plugin.Event(numberOf(step));
        return std::nullopt;
      case Action::RdpChannelEvent:
        plugin.RdpEvent(numberOf(step));
        return std::nullopt;
      case Action::Command:
        return command(step);
      case Action::VmHello:
        handle(message(vmHelloOf(step, model.token())));
        return std::nullopt;
      case Action::VmMessage:
        handle(vmMessageOf(step));
        return std::nullopt;
      case Action::ShareAll:
        return plugin.ShareAll(numberOf(step));
      case Action::DeInit:
        plugin.DeInit();
        return std::nullopt;
      case Action::RdpDeInit:
        plugin.RdpDeInit();
        return std::nullopt;
      default:
        return byService(step, model);
    }
  }

  int command(const Step& step) {
    const ListWith with = listWith(step);
    ipc.syncReply = message(1, kModelCameras, with == ListWith::Error ? 3 : 0);
    ipc.syncResult = with == ListWith::NoAnswer ? kModelRefusal : 0;
    std::vector<char> buffer(kModelListRoom);
    const bool lists = commandOf(step).find("list") != std::string::npos;
    int size = 0;
    if (lists) size = with == ListWith::NoRoom ? kModelListNoRoom : kModelListRoom;
    return plugin.Ctrl(commandOf(step), buffer.data(), size);
  }

  // What the camera service does, or is made to do.
  std::optional<int> byService(const Step& step, const PluginModel& model) {
    switch (step.action) {
      case Action::LoseConnection:
        ipc.connected = false;
        return std::nullopt;
      case Action::RestoreConnection:
        ipc.connected = model.hasClient();
        return std::nullopt;
      case Action::FailNextSend:
        ipc.sendResults = {kModelRefusal};
        return std::nullopt;
      case Action::RefuseAtHost:
        host.sendResult = step.choice % 2 == 0 ? kModelRefusal : 0;
        return std::nullopt;
      case Action::RefuseConnect:
        ipc.connectResult = step.choice % 3 == 0 ? kModelRefusal : 0;
        return std::nullopt;
      default:
        if (!model.hasClient()) return std::nullopt;
        return byCallback(step);
    }
  }

  std::optional<int> byCallback(const Step& step) {
    switch (step.action) {
      case Action::ServiceMessage: {
        Bytes bytes = serviceMessageOf(step);
        return ipc.receiveHere(bytes);
      }
      case Action::ConnectedCallback:
        return ipc.params->onConnect(numberOf(step), ipc.params->userData);
      case Action::SentCallback:
        return ipc.params->onSend(numberOf(step), ipc.params->userData);
      case Action::ClosedCallback:
        ipc.connected = false;
        return ipc.params->onClose(12, 104, ipc.params->userData);
      default:
        ADD_FAILURE() << step.text();
        return std::nullopt;
    }
  }
};

std::string textOf(const Steps& steps) {
  std::string text;
  for (const Step& step : steps) text += step.text() + " ";
  return text;
}

TEST_F(ModelTest, RandomSequencesAgree) {
  const char* wanted = std::getenv("LUMSAR_MODEL_STEPS");
  const std::size_t steps = wanted != nullptr ? std::strtoull(wanted, nullptr, 10) : 2'000;
  constexpr std::size_t kLength = 200;
  const unsigned seed = std::random_device()();
  std::printf("seed %u, %zu steps\n", seed, steps);
  for (unsigned i = 0; i < steps / kLength; ++i) {
    const Steps sequence = randomSteps(seed + i, kLength);
    if (runApart(sequence).empty()) continue;
    const Steps shortest = shortened(sequence);
    FAIL() << textOf(shortest) << "\n" << runApart(shortest);
  }
}

// The test of the test: a model with a mistake is found out, by the four steps that it takes.
TEST_F(ModelTest, DifferenceIsCutDownToItsSteps) {
  closingIsForgotten = true;
  Steps sequence = randomSteps(1, 100);
  for (unsigned seed = 2; runApart(sequence).empty(); ++seed) sequence = randomSteps(seed, 100);
  const Steps shortest = shortened(sequence);
  EXPECT_EQ(shortest.size(), 4U) << textOf(shortest) << runApart(shortest);
  EXPECT_EQ(shortest.back().action, Action::ServiceMessage);
}

}  // namespace
}  // namespace lumsar::test
