/// The program that the measured daemons start: appends the nanosecond at which its main() began, as eight bytes, to a
/// file. Linked statically, so that its own start costs next to nothing.

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <ctime>

int main(int argc, char** argv) {
    timespec ts = {};
    clock_gettime(CLOCK_REALTIME, &ts);
    const std::int64_t iNow = std::int64_t{ts.tv_sec} * 1'000'000'000 + ts.tv_nsec;
    const int iFd = argc == 2 ? open(argv[1], O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600) : -1;
    return write(iFd, &iNow, sizeof(iNow)) == static_cast<ssize_t>(sizeof(iNow)) ? 0 : 1;
}
