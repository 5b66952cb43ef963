// Obtaining a buffer of another object.
#include "operations/outside_buffer.hpp"

#include <exception>
#include <optional>

#include "module/element_types.hpp"
#include "module/support.hpp"

namespace {

enum Failure {
  noBufferInterface = -1,
  nullArgument = -2,
  refused = -3,
  noFormat = -4,
  emptyFormat = -5,
  unknownLetter = -6,
};

int giveUp(int failure, const char* message) {
  setError(PyExc_RuntimeError, message);
  return failure;
}

// Replaces the letters of the platform's long by those of the integer of that width.
char resolvedLetter(char letter, Py_ssize_t itemsize) {
  if (letter == 'L') return itemsize == 4 ? 'I' : 'Q';
  if (letter == 'l') return itemsize == 4 ? 'i' : 'q';
  return letter;
}

// Releases a buffer that was obtained if the function that obtained it is left by an exception.
class ReleaseOnException {
 public:
  explicit ReleaseOnException(Py_buffer& buffer) : m_buffer(buffer) {}
  ReleaseOnException(const ReleaseOnException&) = delete;
  ReleaseOnException& operator=(const ReleaseOnException&) = delete;
  ~ReleaseOnException() {
    if (std::uncaught_exceptions() > m_before) PyBuffer_Release(&m_buffer);
  }

 private:
  Py_buffer& m_buffer;
  int m_before = std::uncaught_exceptions();
};

}  // namespace

int fillPyBuffer(PyObject* object, Py_buffer* buffer, bool* isComplex) {
  if (object == nullptr || PyObject_CheckBuffer(object) == 0) return noBufferInterface;
  if (buffer == nullptr || isComplex == nullptr) {
    setError(PyExc_RuntimeError, messages::nullDataPointer);
    return nullArgument;
  }
  if (PyObject_GetBuffer(object, buffer, PyBUF_ANY_CONTIGUOUS | PyBUF_FORMAT) != 0) return refused;
  const ReleaseOnException guard(*buffer);
  *isComplex = false;
  const char* format = buffer->format;
  if (format == nullptr) return giveUp(noFormat, "format field is null.");
  if (*format == '\0') return giveUp(emptyFormat, "format field is empty.");
  char letter = *format;
  if (letter == 'Z') {
    *isComplex = true;
    letter = format[1] == '\0' ? 'd' : format[1];
  }
  const std::optional<std::int32_t> type =
      getArrayTypeEnumFromChar(resolvedLetter(letter, buffer->itemsize));
  return type ? *type : unknownLetter;
}
