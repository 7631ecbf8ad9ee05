// Draws landscapes into files, shows them in the example's window, and saves a screenshot while it works.

#include "examples/thumbnails/PictureWindow.h"
#include "examples/thumbnails/WindowThread.h"
#include "tests/support/TempFolder.h"

#include <QApplication>
#include <QImage>
#include <QLinearGradient>
#include <QListView>
#include <QPainter>
#include <QPixmap>
#include <QPolygonF>
#include <QProgressBar>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

namespace
{
constexpr QSize PICTURE{4000, 3000};
constexpr int LANDSCAPES = 24;
constexpr int FILES = 480;
constexpr int SHOWN = 5; ///< the number of thumbnails in the screenshot
constexpr int RIDGES = 4;

/// Draws a line of hills from left to right, and the ground below.
QPolygonF DrawRidge(int _iLandscape, int _iRidge)
{
    const double dHeight = PICTURE.height() * (0.45 + 0.13 * _iRidge);
    QPolygonF plyRidge;
    plyRidge << QPointF(PICTURE.width(), PICTURE.height()) << QPointF(0, PICTURE.height());
    for (int iX = 0; iX <= PICTURE.width(); iX += 20)
    {
        const double dX = iX * 6.0 / PICTURE.width() + _iLandscape * 1.7 + _iRidge * 2.9;
        const double dHill = std::sin(dX) + 0.5 * std::sin(dX * 2.3) + 0.2 * std::sin(dX * 6.1);
        plyRidge << QPointF(iX, dHeight - dHill * PICTURE.height() * 0.1);
    }
    return plyRidge;
}

QImage DrawLandscape(int _iLandscape)
{
    const int iHue = _iLandscape * 47 % 360;
    QImage imgLandscape(PICTURE, QImage::Format_RGB32);
    QPainter pntLandscape(&imgLandscape);
    pntLandscape.setRenderHint(QPainter::Antialiasing);
    pntLandscape.setPen(Qt::NoPen);
    QLinearGradient grdSky(0, 0, 0, PICTURE.height() * 0.7);
    grdSky.setColorAt(0, QColor::fromHsv(iHue, 150, 200));
    grdSky.setColorAt(1, QColor::fromHsv((iHue + 40) % 360, 60, 255));
    pntLandscape.fillRect(imgLandscape.rect(), grdSky);
    pntLandscape.setBrush(QColor::fromHsv((iHue + 40) % 360, 25, 255));
    const QPointF ptSun(PICTURE.width() * (0.2 + _iLandscape * 7 % 10 * 0.065), PICTURE.height() * 0.28);
    pntLandscape.drawEllipse(ptSun, PICTURE.height() * 0.1, PICTURE.height() * 0.1);
    for (int iRidge = 0; iRidge < RIDGES; ++iRidge)
    {
        pntLandscape.setBrush(
            QColor::fromHsv((iHue + 10 * iRidge) % 360, 70 + 35 * iRidge, 200 - 45 * iRidge));
        pntLandscape.drawPolygon(DrawRidge(_iLandscape, iRidge));
    }
    return imgLandscape;
}

void AddLandscapes(const CLS_TempFolder& _clsFolder)
{
    for (int iFile = 0; iFile < FILES; ++iFile)
    {
        const auto funGetPath = [&](int _iFile)
        { return _clsFolder.GetPath("Landscape " + std::to_string(_iFile + 1) + ".jpg"); };
        if (iFile < LANDSCAPES)
        {
            DrawLandscape(iFile).save(QString::fromStdString(funGetPath(iFile)));
        }
        else
        {
            std::filesystem::create_hard_link(funGetPath(iFile % LANDSCAPES), funGetPath(iFile));
        }
    }
}

/// Runs the event loop until the window shows SHOWN thumbnails and its progress bar counts them.
void RunUntilShown(const CLS_PictureWindow& _wndLandscapes)
{
    int iShown = 0;
    QObject::connect(_wndLandscapes.findChild<QListView*>()->model(), &QAbstractItemModel::dataChanged,
                     [&] { ++iShown; });
    while (iShown < SHOWN || _wndLandscapes.findChild<QProgressBar*>()->value() < SHOWN)
    {
        QApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
}
} // namespace

int main(int argc, char** argv)
{
    const QApplication app(argc, argv);
    if (argc != 3)
    {
        std::fputs("usage: zel_screenshot LIBRARY PICTURE\n", stderr);
        return 2;
    }
    const CLS_TempFolder clsFolder;
    AddLandscapes(clsFolder);
    const CLS_PoolScope clsPool{CLS_PoolLibrary(argv[1])};
    const std::unique_ptr<CLS_PictureWindow> pWindow(
        CLS_PictureWindow::Open(clsPool, GetWindowThread(), QString::fromStdString(clsFolder.GetPath())));
    pWindow->resize(600, 520);
    RunUntilShown(*pWindow);
    return pWindow->grab().save(argv[2]) ? 0 : 1;
}
