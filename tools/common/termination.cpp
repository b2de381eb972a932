#include "tools/common/termination.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace tools {

namespace {

sigset_t TerminationSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  return signals;
}

int RefuseSignalShutdown(int reason, int, void*) { return reason == fb_shutrsn_signal ? 1 : 0; }

}  // namespace

void BlockTerminationSignals() {
  sigset_t signals = TerminationSignals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

TerminationWatch::TerminationWatch(std::function<void(int, int)> on_signal) : on_signal_(std::move(on_signal)) {
  sigset_t signals = TerminationSignals();
  signal_fd_ = signalfd(-1, &signals, SFD_CLOEXEC);
  if (signal_fd_ < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
  stop_fd_ = eventfd(0, EFD_CLOEXEC);
  if (stop_fd_ < 0) {
    close(signal_fd_);
    throw std::system_error(errno, std::generic_category(), "eventfd");
  }
  thread_ = std::thread([this] { Run(); });
}

TerminationWatch::~TerminationWatch() {
  uint64_t one = 1;
  while (write(stop_fd_, &one, sizeof one) < 0 && errno == EINTR) {
  }
  thread_.join();
  close(signal_fd_);
  close(stop_fd_);
}

void TerminationWatch::Run() {
  int count = 0;
  pollfd fds[2] = {{signal_fd_, POLLIN, 0}, {stop_fd_, POLLIN, 0}};
  for (;;) {
    if (poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (fds[1].revents != 0) return;
    signalfd_siginfo info{};
    if (read(signal_fd_, &info, sizeof info) != sizeof info) continue;
    on_signal_(static_cast<int>(info.ssi_signo), ++count);
  }
}

void DieOfSignal(int signal) {
  std::signal(signal, SIG_DFL);
  sigset_t only;
  sigemptyset(&only);
  sigaddset(&only, signal);
  pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
  raise(signal);
  _exit(128 + signal);
}

bool RefuseEngineShutdownOnSignal(ShutdownCallbackRegistrar registrar) {
  ISC_STATUS_ARRAY status{};
  registrar(status, RefuseSignalShutdown, fb_shut_confirmation, nullptr);
  return status[1] == 0;
}

}  // namespace tools
