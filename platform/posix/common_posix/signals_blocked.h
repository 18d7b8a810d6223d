/// While it lives, the calling thread takes no signals, and neither do the threads that it makes for all their lives:
/// the process's signals belong to its own threads, not to a library's.
#ifndef PROCMGR_PLATFORM_POSIX_SIGNALS_BLOCKED_H
#define PROCMGR_PLATFORM_POSIX_SIGNALS_BLOCKED_H

#include <csignal>

namespace ProcMgr {

class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all;
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t before_ = {};
};

}  // namespace ProcMgr

#endif
