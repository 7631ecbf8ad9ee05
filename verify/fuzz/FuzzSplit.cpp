// Splits any text at any separators and compares with a splitter that is slow and simple.

#include "QuenInclude/Util.h"
#include "verify/fuzz/FuzzInput.h"

namespace
{
std::vector<std::string> SplitSlowly(const std::string& _strText, const std::string& _strSeparators)
{
    std::vector<std::string> vecPieces;
    std::string strPiece;
    for (const char cNext : _strText + '\0')
    {
        const bool bEnd = cNext == '\0';
        if (!bEnd && _strSeparators.find(cNext) == std::string::npos)
        {
            strPiece += cNext;
            continue;
        }
        if (!strPiece.empty())
        {
            vecPieces.push_back(strPiece);
            strPiece.clear();
        }
        if (bEnd)
        {
            return vecPieces;
        }
    }
    return vecPieces;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* _pData, std::size_t _iSize)
{
    CLS_FuzzInput clsInput(_pData, _iSize);
    const std::string strSeparators = clsInput.TakeText(8);
    const std::string strText = clsInput.TakeRest();
    // Like the text, the separators end at the first zero.
    const std::string strUsed = strSeparators.substr(0, strSeparators.find('\0'));
    Require(Util::SplitStdString(strText, strSeparators) == SplitSlowly(strText, strUsed), "the pieces");
    return 0;
}
