#pragma once

#include "QuenHost/CLS_StopToken.h"

#include <QString>
#include <QStringList>

/// The pictures of a folder, or the reason why it cannot be read.
struct ST_PictureList
{
    QStringList m_lstNames; ///< file names without the folder, in the order that people expect
    QString m_strError;     ///< for the user; empty when the folder was read
};

/// Lists the files whose names have the suffix of a picture format. Leaves out subfolders.
///
/// Threads: any.
/// Waits: for the file system. A stop request ends the listing early.
ST_PictureList FindPictures(const QString& _strFolder, const CLS_StopToken& _clsToken);
