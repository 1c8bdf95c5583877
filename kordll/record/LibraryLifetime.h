// Library start-up and shut-down: what process attach and detach were.
//
// Start-up creates the item pools in this order: string items, doubles,
// dates, ints, bools; then the caches that higher layers registered (print
// tags and print templates), in the order they registered. Shut-down
// releases the same caches in the same order. Both are idempotent and also
// run automatically when the shared library is loaded and unloaded, so an
// application need not call them; a test may call them to check what
// happens before start-up or after shut-down.
//
// After shut-down an allocation of a pooled class gives null, and deleting
// into a released pool does nothing. No record may be created before
// start-up or used after shut-down.
//
// Thread safety: call from one thread while no other thread uses records
// (at load, unload, or in a test's set-up).

#ifndef KORDLL_RECORD_LIBRARYLIFETIME_H_
#define KORDLL_RECORD_LIBRARYLIFETIME_H_

namespace kordll {

// Creates every cache that does not exist yet.
void KordllProcessAttach();
// Releases every cache.
void KordllProcessDetach();
// 1 between attach and detach.
int KordllIsAttached();

// A cache of a higher layer, started and released with the library's own.
// If the library is already started, initialize runs at once. Registering
// the same pair twice has no further effect. Call from the layer's static
// initialisation or before the first use of its class.
void KordllRegisterCache(void (*initialize)(), void (*release)());

}  // namespace kordll

#endif  // KORDLL_RECORD_LIBRARYLIFETIME_H_
