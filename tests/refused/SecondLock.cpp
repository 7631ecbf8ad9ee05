// Must not compile: a function calls another one that takes the lock which it holds itself.

#include "QuenInclude/CLS_Mutex.h"

class CLS_RelockingAccount
{
public:
    void Deposit(int _iAmount) ZEL_EXCLUDES(m_mtxBalance)
    {
        const CLS_LockGuard lock(m_mtxBalance);
        m_iBalance = _iAmount;
    }

    void DepositTwice(int _iAmount)
    {
        const CLS_LockGuard lock(m_mtxBalance);
        Deposit(_iAmount); // expected-error {{cannot call function 'Deposit' while mutex 'm_mtxBalance' is held}}
    }

private:
    CLS_Mutex m_mtxBalance;
    int m_iBalance ZEL_GUARDED_BY(m_mtxBalance) = 0;
};

int main()
{
    CLS_RelockingAccount().DepositTwice(1);
}
