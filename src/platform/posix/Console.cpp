// SPDX-License-Identifier: Apache-2.0
#include "platform/Console.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

#include "platform/Utf8.h"

namespace Kelta {
namespace platform {

namespace {

/// One byte; -1 at the end of the input.
int readByte(int descriptor) {
  unsigned char byte = 0;
  ssize_t got = 0;
  do {
    got = read(descriptor, &byte, 1);
  } while (got < 0 && errno == EINTR);
  return got == 1 ? byte : -1;
}

void writeAll(int descriptor, const std::string& text) {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t put = write(descriptor, text.data() + done, text.size() - done);
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) return;
    done += static_cast<std::size_t>(put);
  }
}

std::size_t lengthByLead(int lead) {
  if (lead < 0xC0 || lead > 0xF4) return 1;
  if (lead < 0xE0) return 2;
  return lead < 0xF0 ? 3 : 4;
}

constexpr std::size_t kUsualColumns = 80;

int terminationPipe[2] = {-1, -1};

const int terminationSignals[] = {SIGINT, SIGTERM};

/// In signal context: only tells the waiting thread. The next signal ends the process as usual.
extern "C" void onTerminationSignal(int) {
  const int error = errno;
  for (const int number : terminationSignals) signal(number, SIG_DFL);
  const char byte = 0;
  if (write(terminationPipe[1], &byte, 1) < 0) {
    // Nobody to tell: the next signal ends the process.
  }
  errno = error;
}

void catchTermination(int number) {
  struct sigaction former {};
  // A process that was told to ignore a signal keeps doing so.
  if (sigaction(number, nullptr, &former) != 0 || former.sa_handler == SIG_IGN) return;
  struct sigaction action {};
  action.sa_handler = &onTerminationSignal;
  action.sa_flags = SA_RESTART;
  sigfillset(&action.sa_mask);
  sigaction(number, &action, nullptr);
}

}  // namespace

struct SecretConsole::Impl {
  int descriptor = -1;
  struct termios former {};
  int heldBack = -1;  ///< a byte that turned out to belong to the next character

  int nextByte() {
    const int held = heldBack;
    heldBack = -1;
    return held >= 0 ? held : readByte(descriptor);
  }
};

SecretConsole::SecretConsole() : impl_(new Impl) {
  impl_->descriptor = open("/dev/tty", O_RDWR | O_CLOEXEC);
  if (impl_->descriptor < 0 && isatty(STDIN_FILENO)) impl_->descriptor = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
  if (impl_->descriptor < 0 || tcgetattr(impl_->descriptor, &impl_->former) != 0) return;
  struct termios secret = impl_->former;
  // Ctrl-C arrives as a key: a signal would end the process with the echo still off.
  secret.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON | ISIG);
  secret.c_cc[VMIN] = 1;
  secret.c_cc[VTIME] = 0;
  available_ = tcsetattr(impl_->descriptor, TCSAFLUSH, &secret) == 0;
}

SecretConsole::~SecretConsole() {
  if (available_) tcsetattr(impl_->descriptor, TCSAFLUSH, &impl_->former);
  if (impl_->descriptor >= 0) close(impl_->descriptor);
  delete impl_;
}

int SecretConsole::readKey() {
  if (!available_) return -1;
  const int first = impl_->nextByte();
  if (first < 0 || first == impl_->former.c_cc[VEOF]) return -1;
  char bytes[4] = {static_cast<char>(first)};
  std::size_t count = 1;
  for (; count < lengthByLead(first); ++count) {
    const int next = readByte(impl_->descriptor);
    if (next < 0x80 || next > 0xBF) {
      impl_->heldBack = next;
      break;
    }
    bytes[count] = static_cast<char>(next);
  }
  const char* at = bytes;
  const char32_t c = takeUtf8(at, bytes + count);
  return static_cast<int>(c == noCharacter ? replacementCharacter : c);
}

void SecretConsole::print(const std::string& text) {
  if (available_) writeAll(impl_->descriptor, text);
}

void useUtf8Output() {}

void surviveClosedPipes() { signal(SIGPIPE, SIG_IGN); }

bool outputIsTerminal() { return isatty(STDOUT_FILENO) == 1; }

std::size_t terminalColumns() {
  const char* const kind = std::getenv("TERM");
  if (!outputIsTerminal() || kind == nullptr || *kind == '\0' || std::strcmp(kind, "dumb") == 0) return 0;
  struct winsize size {};
  return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsualColumns;
}

void onTerminate(void (*handler)()) {
  static std::once_flag once;
  std::call_once(once, [handler] {
    if (pipe2(terminationPipe, O_CLOEXEC) != 0) return;
    std::thread([handler] {
      if (readByte(terminationPipe[0]) >= 0) handler();
    }).detach();
    for (const int number : terminationSignals) catchTermination(number);
  });
}

}  // namespace platform
}  // namespace Kelta
