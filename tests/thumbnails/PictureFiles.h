#pragma once

#include <QImage>
#include <QSize>
#include <QString>

/// Makes a picture of four fields. The combination of their colours is unique to the number.
QImage DrawPicture(int _iNumber, const QSize& _szPicture);

/// Writes such a picture to a file. The suffix of the name determines the format.
void WritePicture(const QString& _strPath, int _iNumber, const QSize& _szPicture);

/// Writes bytes to a file.
void WriteBytes(const QString& _strPath, const QByteArray& _strBytes);

/// Expects this part of an image to show the four fields of a picture.
void ExpectPicture(const QImage& _imgSeen, const QRect& _rctPicture, int _iNumber);
