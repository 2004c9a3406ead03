// Thread-exit hooks: the library's thread-detach steps run when a thread that
// used the library ends.
#pragma once

namespace qaaisp::platform {

using ThreadExitHook = void (*)();

// Registers a process-wide hook, run on every thread that called
// NoteThreadUse() when that thread ends. Hooks run in registration order.
void AddThreadExitHook(ThreadExitHook hook);

// Marks the calling thread as a user of the library (thread attach); the
// first call on a thread arms its exit hook. Cheap after the first call.
void NoteThreadUse();

}  // namespace qaaisp::platform
