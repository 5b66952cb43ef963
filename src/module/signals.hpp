// Signals during long walks, which would otherwise wait until the walk is over.
#pragma once

#include <cstdint>

// Counts the elements of one walk and looks for signals every so many, so that Ctrl-C ends the
// walk. A look may run Python code: what the walk has borrowed must not be used afterwards.
class SignalWatch {
 public:
  // False when the handler of a signal has raised. Its error is then set in place of one that was
  // pending; otherwise a pending error stays.
  bool count(std::int64_t elements = 1) {
    m_untilLook -= elements;
    return m_untilLook > 0 || look();
  }
  // Whether count() has returned false.
  bool hasRaised() const { return m_hasRaised; }

 private:
  // A look costs as much as reading one element.
  static constexpr std::int64_t elementsPerLook = 1024;

  bool look();

  std::int64_t m_untilLook = elementsPerLook;
  bool m_hasRaised = false;
};
