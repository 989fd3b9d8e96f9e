// TokenWindow: the tokens that a HELLO made since its construction can carry. A token is drawn from
// Qt's generator, seeded with the second and millisecond of the wall clock.
#pragma once

#include <QTime>

namespace lumsar::test {

class TokenWindow {
 public:
  bool contains(unsigned int token) const;

 private:
  QTime m_begin = QTime::currentTime();
};

}  // namespace lumsar::test
