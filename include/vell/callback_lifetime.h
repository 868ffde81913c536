// Destroying a host callback safely while searches may be calling it.
#pragma once

#include "vell/objects.h"

namespace VELL_2_13 {

// Why this is needed: the EventGenerator base of a callback disconnects the
// library's holders in its own destructor, but C++ runs the destructor of the
// host's derived class first. While that destructor body runs (and while the
// members it destroys are already gone), a search on another thread can still
// enter the callback through a holder, or call a virtual function of an object
// that is no longer the host's class. Disconnecting first, before anything of
// the derived object is destroyed, waits for every search that is inside the
// callback and keeps every later search out.

// The one-line call for a callback class of the host's own: make it the first
// statement of the destructor of the most derived class.
//
//   MyCallback::~MyCallback() { VELL_2_13::disconnectCallbackHolders(*this); ... }
//
// It must not be called from inside one of the callback's own calls (it would
// wait for itself). Holders may be registered again afterwards.
inline void disconnectCallbackHolders(EventGenerator &callback) {
  if (IEventGeneratorImpl *impl = callback.eventGeneratorImpl())
    impl->disconnectHandlers();
}

// The ready-made way: wrap the host's callback class instead of adding the call
// by hand, and create or register the wrapped type.
//
//   VELL_2_13::SafeCallback<MyFilesFoundCallback> callback(constructor arguments);
//   manager->registerFilesFoundCallback(context, clientId, &callback);
//
// The wrapper is final, so its destructor is the first one to run: the holders
// are disconnected before the destructor body of MyFilesFoundCallback starts.
template <class Callback> class SafeCallback final : public Callback {
public:
  using Callback::Callback;
  ~SafeCallback() override { disconnectCallbackHolders(*this); }
};

} // namespace VELL_2_13
