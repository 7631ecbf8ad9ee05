#include "QuenHost/CLS_PoolScope.h"
#include "examples/thumbnails/PictureWindow.h"
#include "examples/thumbnails/WindowThread.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QLoggingCategory>
#include <QStandardPaths>
#include <cstdio>
#include <exception>

namespace
{
struct ST_ThumbnailOptions
{
    QStringList m_lstFolders;
    QString m_strLibrary;
};

/// Parses the options. Ends the program for --help and for unknown options.
ST_ThumbnailOptions ReadOptions(const QApplication& _app)
{
    const QCommandLineOption clsLibrary("library", "The pool library.", "file",
                                        QString::fromStdString(CLS_PoolLibrary::GetUsualName()));
    QCommandLineParser clsParser;
    clsParser.setApplicationDescription("Shows the pictures of folders, each in a window.");
    clsParser.addHelpOption();
    clsParser.addOption(clsLibrary);
    clsParser.addPositionalArgument("folder", "A folder with pictures. Without one: your own pictures.",
                                    "[folder...]");
    clsParser.process(_app);
    ST_ThumbnailOptions stOptions{clsParser.positionalArguments(), clsParser.value(clsLibrary)};
    if (stOptions.m_lstFolders.isEmpty())
    {
        stOptions.m_lstFolders = {QStandardPaths::writableLocation(QStandardPaths::PicturesLocation)};
    }
    return stOptions;
}
} // namespace

int main(int argc, char** argv)
{
    const QApplication app(argc, argv);
    QLoggingCategory::setFilterRules("qt.gui.imageio*=false"); // the window marks broken pictures
    try
    {
        const ST_ThumbnailOptions stOptions = ReadOptions(app);
        const CLS_PoolScope clsPool{CLS_PoolLibrary(stOptions.m_strLibrary.toStdString())};
        const CLS_HostThread clsWindowThread = GetWindowThread();
        for (const QString& strFolder : stOptions.m_lstFolders)
        {
            CLS_PictureWindow::Open(clsPool, clsWindowThread, strFolder);
        }
        return QApplication::exec(); // until the last window is closed; then the pool ends
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "thumbnails: %s\n", error.what());
        return 1;
    }
}
