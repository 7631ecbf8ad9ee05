#pragma once

#include <QImage>
#include <QSize>
#include <QString>

/// A picture of four fields, whose colours belong to its number alone.
QImage DrawPicture(int _iNumber, const QSize& _szPicture);

/// Writes it into a file; the end of the name says the format.
void WritePicture(const QString& _strPath, int _iNumber, const QSize& _szPicture);

/// Writes bytes into a file.
void WriteBytes(const QString& _strPath, const QByteArray& _strBytes);

/// Expects the four fields of a picture, in this part of an image.
void ExpectPicture(const QImage& _imgSeen, const QRect& _rctPicture, int _iNumber);
