#pragma once
// The GIL around calls into the toolkit and back from it. A thread that may wait in the toolkit lets the
// GIL go (the dispatcher may need it to finish a callback); a dispatcher thread takes it for a callback.
#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include <chrono>
#include <thread>

namespace vantrel::python {

// The thread that runs (and finalizes) the interpreter; set when the extension is imported.
inline unsigned long& mainThread() {
    static unsigned long ident = 0;
    return ident;
}

inline bool finalizing() {
#if PY_VERSION_HEX >= 0x030D0000
    return Py_IsFinalizing();
#else
    return _Py_IsFinalizing();
#endif
}

// Takes the GIL back. Python ends any other thread that asks for it while the interpreter finalizes
// (pthread_exit, unwinding C++ frames that were not written for it): such a thread (a daemon thread
// that was sending) waits here for the process to end instead.
inline void restoreGil(PyThreadState* state) {
    if (finalizing() && PyThread_get_thread_ident() != mainThread()) {
        for (;;) std::this_thread::sleep_for(std::chrono::hours(1));
    }
    PyEval_RestoreThread(state);
}

// Runs `work` without the GIL when the calling thread holds it (and as it is otherwise).
template <class Work>
void withoutGil(Work&& work) {
    if (Py_IsInitialized() && PyGILState_Check()) {
        // noexcept(false): should finalization start between the check in restoreGil and the restore, the
        // thread's forced unwinding must pass this destructor (and the binding rethrows it).
        struct Restore {
            PyThreadState* state;
            ~Restore() noexcept(false) { restoreGil(state); }
        } restore{PyEval_SaveThread()};
        work();
    } else {
        work();
    }
}

// Holds the GIL for a scope on a dispatcher thread. The thread keeps one Python thread state for its life,
// made on its first delivery and never deleted (the thread may end when Python cannot be called any
// more): making and deleting one per call would map and unmap the interpreter's frame stack per message.
class DispatcherGil {
public:
    DispatcherGil() {
        thread_local bool hasThreadState = false;
        if (!hasThreadState) {
            PyGILState_Ensure();  // not released: it keeps the thread state
            PyEval_SaveThread();
            hasThreadState = true;
        }
        m_state = PyGILState_Ensure();
    }
    ~DispatcherGil() { PyGILState_Release(m_state); }
    DispatcherGil(const DispatcherGil&) = delete;
    DispatcherGil& operator=(const DispatcherGil&) = delete;

private:
    PyGILState_STATE m_state;
};

}  // namespace vantrel::python
