#pragma once

#include <exception>
#include <random>

/// Whether the C++ library of this process opens a file to draw random numbers.
///
/// GNU's library and that of older macOS do. The library of newer macOS calls the system and opens nothing.
inline bool OpensRandomDevice()
{
    try
    {
        const std::random_device clsRandom("/no/such/device");
        return false;
    }
    catch (const std::exception&)
    {
        return true;
    }
}
