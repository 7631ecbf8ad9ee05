#pragma once

/// While one lives, the system's source of random numbers cannot be opened, on any thread, as when the
/// process has no descriptor left. One at a time.
class CLS_FailingRandom
{
public:
    CLS_FailingRandom();
    ~CLS_FailingRandom();
    CLS_FailingRandom(const CLS_FailingRandom&) = delete;
    CLS_FailingRandom& operator=(const CLS_FailingRandom&) = delete;
};
