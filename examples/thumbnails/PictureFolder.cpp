#include "examples/thumbnails/PictureFolder.h"

#include <QCollator>
#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <QLocale>
#include <algorithm>
#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace
{
/// Returns whether the entry is a picture. A broken link is one, so that the window shows it as broken. A
/// pipe is not, because it would block the task.
bool IsPicture(const fs::directory_entry& _entry, const QString& _strName)
{
    std::error_code error;
    const fs::file_status status = _entry.status(error);
    const QByteArray strFormat = QFileInfo(_strName).suffix().toLower().toLatin1();
    return QImageReader::supportedImageFormats().contains(strFormat) && !fs::is_directory(status) &&
           !fs::is_other(status);
}

/// Sorts "Picture 2" before "picture 10".
void SortForPeople(QStringList& _lstNames)
{
    QCollator clsCollator(QLocale::English); // the locale "C" cannot sort by numbers
    clsCollator.setNumericMode(true);
    clsCollator.setCaseSensitivity(Qt::CaseInsensitive);
    std::sort(_lstNames.begin(), _lstNames.end(), clsCollator);
}
} // namespace

ST_PictureList FindPictures(const QString& _strFolder, const CLS_StopToken& _clsToken)
{
    ST_PictureList stPictures;
    std::error_code error;
    // QDir does not tell why a folder cannot be read.
    fs::directory_iterator itEntry(QFile::encodeName(_strFolder).toStdString(), error);
    while (!error && itEntry != fs::directory_iterator() && !_clsToken.IsStopRequested())
    {
        const QString strName = QFile::decodeName(itEntry->path().filename().c_str());
        if (IsPicture(*itEntry, strName))
        {
            stPictures.m_lstNames.append(strName);
        }
        itEntry.increment(error);
    }
    if (error)
    {
        return {{}, QString::fromStdString(error.message())};
    }
    SortForPeople(stPictures.m_lstNames);
    return stPictures;
}
