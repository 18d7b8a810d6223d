/// The other way to tell readiness, for a script that starts a daemon: one byte to an open descriptor.
#ifndef PROCMGR_SERVICE_READY_DESCRIPTOR_H
#define PROCMGR_SERVICE_READY_DESCRIPTOR_H

/// Writes the byte and closes the descriptor. 0, or the errno of the failure; 0 too for a negative number, which is
/// none.
[[nodiscard]] int TellReadyDescriptor(int descriptor);

#endif
