// One cell of the table: at a stage of a session, a fault is done to a part of the chain.
#pragma once

#include <string>
#include <vector>

#include "faults/fault.h"

namespace lumsar::test {

enum class Stage { Connecting, Listing, Sharing, Streaming, InAFrame, Unsharing, Leaving };
inline constexpr std::array kStages{Stage::Connecting, Stage::Listing,  Stage::Sharing,
                                    Stage::Streaming,  Stage::InAFrame, Stage::Unsharing,
                                    Stage::Leaving};
const char* nameOf(Stage stage);

struct Cell {
  Stage stage;
  Part part;
  const Fault* fault;  // none: an undisturbed session
  std::string protocol;

  std::string name() const;
};

struct Programs {
  std::string bin;
  std::string self;
  std::string preload;
};

// What a part has written or how it has ended, and how long after the fault's beginning.
using SeenLine = std::pair<std::string, milliseconds>;

struct Outcome {
  std::string wrong;                 // empty: all as it must be
  std::string logs = {};             // of all parts, if something is wrong
  milliseconds recovery{};           // from the fault's end until what the stage leads to works
  std::vector<SeenLine> lines = {};  // until then, without times and numbers
};

Outcome run(const Cell& cell, const Programs& programs);

}  // namespace lumsar::test
