#include "examples/thumbnails/WindowThread.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <functional>
#include <utility>

CLS_HostThread GetWindowThread()
{
    const auto funPost = [](std::function<void()> _funCall)
    { QMetaObject::invokeMethod(QCoreApplication::instance(), std::move(_funCall), Qt::QueuedConnection); };
    return CLS_HostThread(funPost);
}
