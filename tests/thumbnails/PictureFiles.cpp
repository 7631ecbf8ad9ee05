#include "tests/thumbnails/PictureFiles.h"

#include <QColor>
#include <QFile>
#include <QPainter>
#include <array>
#include <cstdlib>
#include <gtest/gtest.h>

namespace
{
constexpr int FIELDS = 4;
constexpr int TOLERANCE = 10; ///< for each component of a colour: some formats lose precision

QColor GetColour(int _iNumber, int _iField)
{
    return QColor::fromHsv((_iNumber * 37 + _iField * 80) % 360, 255, 255 - _iNumber % 5 * 25);
}

/// Returns one quarter of an area.
QRect GetField(const QRect& _rctPicture, int _iField)
{
    const QSize szField = _rctPicture.size() / 2;
    return {_rctPicture.topLeft() + QPoint(_iField % 2 * szField.width(), _iField / 2 * szField.height()),
            szField};
}

bool IsAlike(const QColor& _colSeen, const QColor& _colWanted)
{
    return std::abs(_colSeen.red() - _colWanted.red()) <= TOLERANCE &&
           std::abs(_colSeen.green() - _colWanted.green()) <= TOLERANCE &&
           std::abs(_colSeen.blue() - _colWanted.blue()) <= TOLERANCE;
}
} // namespace

QImage DrawPicture(int _iNumber, const QSize& _szPicture)
{
    QImage imgPicture(_szPicture, QImage::Format_RGB32);
    QPainter pntPicture(&imgPicture);
    for (int iField = 0; iField < FIELDS; ++iField)
    {
        pntPicture.fillRect(GetField(imgPicture.rect(), iField), GetColour(_iNumber, iField));
    }
    return imgPicture;
}

void WritePicture(const QString& _strPath, int _iNumber, const QSize& _szPicture)
{
    ASSERT_TRUE(DrawPicture(_iNumber, _szPicture).save(_strPath, nullptr, 100)) << _strPath.toStdString();
}

void WriteBytes(const QString& _strPath, const QByteArray& _strBytes)
{
    QFile clsFile(_strPath);
    ASSERT_TRUE(clsFile.open(QIODevice::WriteOnly)) << _strPath.toStdString();
    ASSERT_EQ(_strBytes.size(), clsFile.write(_strBytes));
}

void ExpectPicture(const QImage& _imgSeen, const QRect& _rctPicture, int _iNumber)
{
    for (int iField = 0; iField < FIELDS; ++iField)
    {
        const QColor colSeen = _imgSeen.pixelColor(GetField(_rctPicture, iField).center());
        const QColor colWanted = GetColour(_iNumber, iField);
        EXPECT_TRUE(IsAlike(colSeen, colWanted))
            << "picture " << _iNumber << ", field " << iField << " is " << colSeen.name().toStdString()
            << " instead of " << colWanted.name().toStdString();
    }
}
