// Must not compile: a member is written by a function that does not take its lock.

#include "QuenInclude/CLS_Mutex.h"

class CLS_LocklessAccount
{
public:
    void Deposit(int _iAmount)
    {
        m_iBalance = _iAmount; // expected-error {{writing variable 'm_iBalance' requires holding mutex 'm_mtxBalance' exclusively}}
    }

private:
    CLS_Mutex m_mtxBalance;
    int m_iBalance ZEL_GUARDED_BY(m_mtxBalance) = 0;
};

int main()
{
    CLS_LocklessAccount().Deposit(1);
}
