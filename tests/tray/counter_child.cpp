// One process holding a tray control: prints its instance number, then
// stays until its standard input closes (or it is killed).
#include "tray/ctlsystrayballoon.h"

#include <QApplication>
#include <cstdio>
#include <iostream>
#include <string>

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    ctlSysTrayBalloon tray;
    std::printf("%d\n", tray.ID());
    std::fflush(stdout);
    std::string line;
    while (std::getline(std::cin, line)) {
    }
    return 0;
}
