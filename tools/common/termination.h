// SIGINT and SIGTERM, handled by a thread of the program's own instead of an
// asynchronous handler, so that what a signal asks for can take locks and
// close files. The database client's own handlers never see them either: the
// signals stay blocked in every thread, and a shutdown of the engine that a
// signal would start is refused.
#pragma once

#include <ibase.h>

#include <csignal>
#include <functional>
#include <thread>

namespace tools {

// Blocks SIGINT and SIGTERM in the calling thread. Called first thing in
// main, before any thread starts, so that every thread inherits the block.
void BlockTerminationSignals();

// Waits for SIGINT and SIGTERM on a thread of its own and calls on_signal
// there with the signal and how many came so far (from 1). The signals must
// be blocked already (BlockTerminationSignals). A signal that the program
// was started with ignored stays ignored.
class TerminationWatch {
 public:
  explicit TerminationWatch(std::function<void(int signal, int count)> on_signal);
  // Stops the thread; a signal that comes afterwards stays pending.
  ~TerminationWatch();
  TerminationWatch(const TerminationWatch&) = delete;
  TerminationWatch& operator=(const TerminationWatch&) = delete;

 private:
  void Run();
  std::function<void(int, int)> on_signal_;
  int signal_fd_ = -1;
  int stop_fd_ = -1;
  std::thread thread_;
};

// Ends the program as the signal's default action does (the parent sees the
// signal), without running exit handlers: the database engine is not shut
// down under a thread that still uses it.
[[noreturn]] void DieOfSignal(int signal);

// The client's fb_shutdown_callback, reached directly or looked up in a
// library that brought the client in.
using ShutdownCallbackRegistrar = decltype(&fb_shutdown_callback);

// Registers with the database client a callback that refuses every shutdown
// whose reason is a signal. False if the client refused the registration.
bool RefuseEngineShutdownOnSignal(ShutdownCallbackRegistrar registrar);

}  // namespace tools
