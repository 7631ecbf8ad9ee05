#pragma once

#include <exception>
#include <random>

/// Whether the C++ library of this process draws random numbers from a device that it opens as a file. GNU's
/// does, and that of older macOS; that of newer macOS asks the system and opens nothing.
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
