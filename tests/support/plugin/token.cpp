#include "support/plugin/token.h"

#include <QtGlobal>

namespace lumsar::test {

QT_WARNING_PUSH
// They are what a token is made of.
QT_WARNING_DISABLE_DEPRECATED
bool TokenWindow::contains(unsigned int token) const {
  const QTime end = QTime::currentTime();
  for (QTime time = m_begin;; time = time.addMSecs(1)) {
    qsrand(static_cast<unsigned int>(time.second() * 1000 + time.msec()));
    if (static_cast<unsigned int>(qrand() % 10000) == token) return true;
    if (time == end) return false;
  }
}
QT_WARNING_POP

}  // namespace lumsar::test
