/// Keeps writing numbered lines to an execution log, as jobs do, until its standard input ends; then prints how many.
///
/// Usage: logwriter LOG STAGING_FILE

#include <poll.h>
#include <unistd.h>

#include <iostream>
#include <string>

#include "logger/memorylogger.h"

int main(int iCount, char** aArguments) {
    if (iCount != 3) {
        return 2;
    }
    VUKO::MemoryLogger logger(aArguments[1], aArguments[2], 1024);
    int iLines = 0;
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    while (poll(&input, 1, 1) == 0) {
        logger._ssLog << "line " << iLines++ << " ends\n";
        logger.FlushAll();
    }
    std::cout << iLines << '\n';
    return 0;
}
