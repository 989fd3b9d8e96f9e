// TokenWindow: the tokens that a HELLO made since its construction can carry. A token is drawn from
// Qt's generator, seeded with the second and millisecond of the wall clock.
#ifndef LUMSAR_TESTS_SUPPORT_PLUGIN_TOKEN_H
#define LUMSAR_TESTS_SUPPORT_PLUGIN_TOKEN_H

#include <QTime>

namespace lumsar::test {

class TokenWindow {
 public:
  bool contains(unsigned int token) const;

 private:
  QTime m_begin = QTime::currentTime();
};

}  // namespace lumsar::test

#endif
