#pragma once

#include <cstdlib>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>

/// The options of a program that takes only numbers, each as "--name value". Anything else ends the process
/// with status 2 and a message.
class CLS_Options
{
public:
    /// _mapDefaults lists all options with their default values.
    CLS_Options(int _iCount, char** _ppTexts, const std::map<std::string, long long>& _mapDefaults)
        : m_mapValues(_mapDefaults)
    {
        for (int i = 1; i < _iCount; i += 2)
        {
            const auto itValue = m_mapValues.find(_ppTexts[i]);
            if (itValue == m_mapValues.end() || i + 1 == _iCount || !Read(_ppTexts[i + 1], itValue->second))
            {
                Refuse(_ppTexts[0], _mapDefaults);
            }
        }
    }

    long long Get(const std::string& _strName) const { return m_mapValues.at(_strName); }

private:
    static bool Read(const std::string& _strText, long long& _iValue)
    {
        try
        {
            std::size_t uiRead = 0;
            _iValue = std::stoll(_strText, &uiRead);
            return uiRead == _strText.size() && _iValue >= 0;
        }
        catch (const std::logic_error&)
        {
            return false;
        }
    }

    [[noreturn]] static void Refuse(const char* _szProgram,
                                    const std::map<std::string, long long>& _mapDefaults)
    {
        std::cerr << "usage: " << _szProgram << " [--name number]..., by default";
        for (const auto& [strName, iValue] : _mapDefaults)
        {
            std::cerr << " " << strName << " " << iValue;
        }
        std::cerr << std::endl;
        std::exit(2); // NOLINT(concurrency-mt-unsafe): before the program starts any thread
    }

    std::map<std::string, long long> m_mapValues;
};
