// Holds the client lock of a server for a scope and gives the signals that came up inside it
// afterwards, so that the threads they wake find the lock free.
#pragma once

#include "net/server_engine.h"

namespace qvx::net {

class ServerEngine::Scope {
 public:
  explicit Scope(ServerEngine& engine) : engine_(engine) { engine.server_.mClientLock.Lock(); }
  ~Scope() {
    const bool dispatch = engine_.signal_dispatch_;
    const bool close = engine_.signal_close_;
    engine_.signal_dispatch_ = false;
    engine_.signal_close_ = false;
    engine_.server_.mClientLock.Unlock();
    if (dispatch) engine_.server_.mDispatchEvent.Set();
    if (close) engine_.server_.mCloseEvent.Set();
  }
  Scope(const Scope&) = delete;
  Scope& operator=(const Scope&) = delete;

 private:
  ServerEngine& engine_;
};

}  // namespace qvx::net
