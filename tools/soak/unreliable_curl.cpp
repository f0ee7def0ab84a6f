// Stands in for ./curl: mostly it becomes the real one, but now and then it dies first.
//
// In the working folder the real program is "real-curl". Asked for its version it always answers.
// Whatever goes wrong here goes wrong before any server is spoken to.
#include <signal.h>
#include <sys/random.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

constexpr const char* kRealCurl = "./real-curl";

// Every this many runs, roughly.
constexpr std::uint32_t kRunsPerFault = 12;

enum class Fault : std::uint32_t { Killed, NoName, NoTls, LoginRefused, FileUnreadable, Hangs };
constexpr std::uint32_t kFaults = 6;

void Misbehave(Fault fault, std::uint32_t random) {
  switch (fault) {
    case Fault::Killed:
      kill(getpid(), SIGKILL);
      return;
    case Fault::NoName:
      std::puts("curl: (6) Could not resolve host");
      std::fflush(stdout);
      _exit(6);
    case Fault::NoTls:
      _exit(35);
    case Fault::LoginRefused:
      _exit(67);
    case Fault::FileUnreadable:
      _exit(26);
    case Fault::Hangs:
      usleep(100'000 + random % 900'000);
      return;
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::uint32_t random[2] = {};
  const bool asksForVersion = argc > 1 && std::strcmp(argv[1], "-V") == 0;
  if (!asksForVersion && getrandom(random, sizeof(random), 0) == sizeof(random) &&
      random[0] % kRunsPerFault == 0) {
    Misbehave(static_cast<Fault>(random[1] % kFaults), random[1]);
  }
  execv(kRealCurl, argv);
  return 127;
}
