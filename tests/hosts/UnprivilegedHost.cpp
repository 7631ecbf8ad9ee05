// Runs a program as the user "nobody". Root may read everything, so only another user meets unreadable files.

#include <cstdio>
#include <grp.h>
#include <unistd.h>

int main(int _iCount, char** _pArguments)
{
    constexpr unsigned NOBODY = 65534;
    if (_iCount < 2)
    {
        std::fputs("usage: UnprivilegedHost PROGRAM [ARGUMENT...]\n", stderr);
        return 2;
    }
    if (geteuid() == 0 && (setgroups(0, nullptr) != 0 || setgid(NOBODY) != 0 || setuid(NOBODY) != 0))
    {
        std::perror("cannot become nobody");
        return 2;
    }
    execv(_pArguments[1], _pArguments + 1);
    std::perror(_pArguments[1]);
    return 2;
}
