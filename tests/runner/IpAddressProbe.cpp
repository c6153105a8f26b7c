#include "PerfHelper/TidewaveUtils.h"

#include <cstdio>

int main()
{
    std::printf("%s\n", TidewaveUtils::getIPAddress().toUtf8().constData());
    return 0;
}
