// A logging library that prints its log records. A second build lacks "PrintLog".

#include <cstdio>
#include <string>

extern "C"
{
#ifndef ZEL_TEST_WITHOUT_PRINT_LOG
    void PrintLog(int _iLevel, const char* _szModule, const char* _szFile, int _iLine,
                  const char* _szFunction, const std::string& _strMessage)
    {
        std::printf("%d|%s|%s|%d|%s|%s\n", _iLevel, _szModule, _szFile, _iLine, _szFunction,
                    _strMessage.c_str());
        std::fflush(stdout);
    }
#endif

    void Init() {}
    void SetLoggerConfig() {}
    void SetLoggerConfigAll() {}
    void UnInit() {}
}
