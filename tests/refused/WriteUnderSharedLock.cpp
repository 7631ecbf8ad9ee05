// Must not compile: a member is written by a function that holds its lock shared.

#include "QuenInclude/CLS_Mutex.h"

class CLS_SharingAccount
{
public:
    void Deposit(int _iAmount)
    {
        const CLS_SharedGuard lock(m_smBalanceLock);
        m_iBalance = _iAmount; // expected-error {{writing variable 'm_iBalance' requires holding mutex 'm_smBalanceLock' exclusively}}
    }

private:
    CLS_SharedMutex m_smBalanceLock;
    int m_iBalance ZEL_GUARDED_BY(m_smBalanceLock) = 0;
};

int main()
{
    CLS_SharingAccount().Deposit(1);
}
