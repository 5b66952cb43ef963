// What becomes of C++ frames when the interpreter ends their thread.
//
// At exit, CPython up to 3.13 ends every other thread that asks for the interpreter's lock, by
// unwinding its stack. The thread then does not hold the lock, so the destructors of its frames
// must not run: they release references and buffers, while another thread may use the same objects.
// The linker puts this function in the place of the routine that runs them.
#include <unwind.h>

extern "C" {

_Unwind_Reason_Code standardRoutine(
    int version, _Unwind_Action actions, _Unwind_Exception_Class exceptionClass,
    _Unwind_Exception* exception, _Unwind_Context* context) __asm__("__real___gxx_personality_v0");

_Unwind_Reason_Code routine(int version, _Unwind_Action actions,
                            _Unwind_Exception_Class exceptionClass, _Unwind_Exception* exception,
                            _Unwind_Context* context) __asm__("__wrap___gxx_personality_v0");

// Passes over the frame when a thread is ended. What the frame owns is never freed, which matters
// little: the process is about to end.
_Unwind_Reason_Code routine(int version, _Unwind_Action actions,
                            _Unwind_Exception_Class exceptionClass, _Unwind_Exception* exception,
                            _Unwind_Context* context) {
  if ((actions & _UA_FORCE_UNWIND) != 0) return _URC_CONTINUE_UNWIND;
  return standardRoutine(version, actions, exceptionClass, exception, context);
}
}
