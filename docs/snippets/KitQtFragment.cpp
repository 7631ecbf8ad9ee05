// build: g++ -std=c++17 -fPIC $(pkg-config --cflags Qt5Core)
#include "QuenHost/CLS_HostThread.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <functional>
#include <utility>

CLS_HostThread GetWindowThread()
{
#include BLOCK
    return clsWindow;
}
