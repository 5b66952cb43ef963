// Comparison of buffer formats.
#include "construct/external_buffer.hpp"

#include "module/support.hpp"

namespace external_buffer {

bool refuse(const std::string& message) {
  setError(PyExc_BufferError, message);
  return false;
}

bool formatMatches(const Py_buffer& view, char outputLetter, bool isComplex) {
  if (view.format == nullptr || *view.format == '\0') {
    return refuse("input 'format' field is null.");
  }
  const auto start = [&view] { return std::string("input buffer format ('") + view.format; };
  if (isComplex && *view.format != 'Z') {
    return refuse(start() + "') does not begin with 'Z', but output type is complex");
  }
  const char letter = view.format[isComplex ? 1 : 0];
  if (letter == outputLetter || areDifferentButCompatible(letter, outputLetter, view.itemsize)) {
    return true;
  }
  return refuse(start() + "') is not compatible with output format ('" + (isComplex ? "Z" : "") +
                outputLetter + "'); use a different input or output type");
}

}  // namespace external_buffer

bool areDifferentButCompatible(char input, char output, long itemsize) {
  switch (input) {
    case '?':
      return output == 'B';
    case 'B':
      return output == '?';
    case 'l':
      return output == (itemsize == 4 ? 'i' : 'q');
    case 'L':
      return output == (itemsize == 4 ? 'I' : 'Q');
    default:
      return false;
  }
}
