#include "examples/thumbnails/Thumbnail.h"

#include <QFile>
#include <QImageReader>
#include <QSize>

namespace
{
/// A file whose reads fail once a stop is requested. A decoder then gives up in the middle of a picture.
class CLS_StoppableFile : public QFile
{
public:
    CLS_StoppableFile(const QString& _strPath, const CLS_StopToken& _clsToken)
        : QFile(_strPath), m_clsToken(_clsToken)
    {
    }

protected:
    qint64 readData(char* _pData, qint64 _iSize) override
    {
        return m_clsToken.IsStopRequested() ? -1 : QFile::readData(_pData, _iSize);
    }

private:
    const CLS_StopToken& m_clsToken;
};

QSize FitInto(const QSize& _szPicture, int _iPixels)
{
    const bool bSmall = _szPicture.width() <= _iPixels && _szPicture.height() <= _iPixels;
    return bSmall ? _szPicture
                  : _szPicture.scaled(_iPixels, _iPixels, Qt::KeepAspectRatio).expandedTo(QSize(1, 1));
}
} // namespace

ST_Thumbnail MakeThumbnail(const QString& _strPath, int _iPixels, const CLS_StopToken& _clsToken)
{
    CLS_StoppableFile clsFile(_strPath, _clsToken);
    if (!clsFile.open(QIODevice::ReadOnly))
    {
        return {{}, clsFile.errorString()};
    }
    QImageReader clsReader(&clsFile);
    clsReader.setDecideFormatFromContent(true);
    clsReader.setAutoTransform(true); // cameras store their orientation
    // Some decoders are faster if they can scale while they decode. Others do not report the size of the
    // picture.
    clsReader.setScaledSize(FitInto(clsReader.size(), _iPixels));
    const QImage imgPicture = clsReader.read();
    if (imgPicture.isNull())
    {
        return {{}, clsReader.errorString()};
    }
    const QSize szThumbnail = FitInto(imgPicture.size(), _iPixels);
    return {imgPicture.scaled(szThumbnail, Qt::IgnoreAspectRatio, Qt::SmoothTransformation), {}};
}
