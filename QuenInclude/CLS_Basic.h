#pragma once

#include "QuenInclude/CLS_CVariant.h"
#include "QuenInclude/CLS_Mutex.h"
#include "QuenInclude/Logger.h"
#include "QuenInclude/Util.h"

#include <functional>
#include <map>
#include <string>
#include <utility>

/// \file
/// The base of the objects that carry parameters.

/// Receives a result: a first text, parameters, a second text, and the user data of the registration.
using CallBackResultFun = std::function<void(const std::string&, const std::map<std::string, CLS_CVariant>&,
                                             const std::string&, void*)>;

/// Base of the system's objects: an id, named parameters and result callbacks.
///
/// The destructor is not virtual on purpose: an object is destroyed through its most-derived type.
///
/// Thread-safe, from any thread: parameters and callbacks each have their own reader/writer lock, and no
/// operation holds both. Operations wait only for those locks. std::bad_alloc passes, and leaves the object
/// as it was. Pitfall: callbacks, and the records of their failures, run with the callback lock held shared,
/// so neither a callback nor "PrintLog" may register or remove a callback on the same object; that deadlocks.
class CLS_Basic
{
public:
    CLS_Basic() = default;
    CLS_Basic(const CLS_Basic&) = delete;
    CLS_Basic& operator=(const CLS_Basic&) = delete;

    /// Name of the object's class, as the platform gives it to the run-time type, without namespaces. The
    /// text stays valid for the life of the process. Takes a lock of its own for a look-up.
    virtual const char* GetClassCode();

    /// Name that the object's records carry as their module: the class code, unless a class overrides that.
    /// Null from an override of either is passed on as the module, and left out of the records' texts.
    virtual const char* GetModuleCode();

    /// Sets the parameter "__id__".
    virtual void SetId(const CLS_CVariant& _clsId);

    /// The parameter "__id__" as a text. When there is none, makes an id with Util::GetUuid, whose
    /// exceptions pass, and keeps it. Of two threads that ask first at once, the last to store wins.
    virtual std::string GetId();

    /// Registers a callback and returns its key. _pUser is passed on to the callback, and never touched.
    /// Exclusive callback lock. Util::GetUuid's exceptions pass.
    virtual std::string SetCallBackResultFun(const CallBackResultFun& _funCallBack, void* _pUser);

    /// Forgets a callback; an unknown key is ignored. Exclusive callback lock: waits for running callbacks.
    virtual void RmoveCallBackResultFun(const std::string& _strKey);

    /// Sets one parameter to a deep copy of the value. Exclusive parameter lock.
    virtual void SetParam(const std::string& _strName, const CLS_CVariant& _clsValue);

    /// Replaces all parameters, the id included. Exclusive parameter lock.
    virtual void SetParam(const std::map<std::string, CLS_CVariant>& _mapParam);

    /// Drops a parameter; an unknown name is ignored. Exclusive parameter lock.
    virtual void RemoveParam(const std::string& _strName);

    /// A copy of one parameter; a variant of type None when there is none. Shared parameter lock.
    virtual CLS_CVariant Param(const std::string& _strName);

    /// A copy of all parameters. Shared parameter lock.
    virtual std::map<std::string, CLS_CVariant> Param();

    /// The parameters as Util::MapToString prints them. Shared parameter lock.
    virtual std::string ParamToString();

    /// Calls the callback with this key, or all of them, in key order, when the key is empty. What a
    /// callback throws is recorded and swallowed. Holds the callback lock shared throughout, and takes as
    /// long as the callbacks do. An unknown key is recorded, and called as an empty callback; kept on
    /// purpose: that leaves an empty entry behind, made under the shared lock, so callers that share the
    /// object between threads pass known keys only.
    virtual void RunCallBackFun(const std::string& _strFirst,
                                const std::map<std::string, CLS_CVariant>& _mapParam,
                                const std::string& _strSecond, const std::string& _strKey);

private:
    using CallBackEntry = std::pair<CallBackResultFun, void*>;

    void RunOneCallBack(const CallBackEntry& _pairEntry, const std::string& _strFirst,
                        const std::map<std::string, CLS_CVariant>& _mapParam, const std::string& _strSecond);
    void RecordCallBack(const std::string& _strText, int _iLine = __builtin_LINE());

    CLS_SharedMutex m_smParamLock;
    std::map<std::string, CLS_CVariant> m_mapParam ZEL_GUARDED_BY(m_smParamLock); ///< the parameters, by name
    CLS_SharedMutex m_smCallBackLock;
    /// Callback and user data, by key.
    std::map<std::string, CallBackEntry> m_mapCallBackFun ZEL_GUARDED_BY(m_smCallBackLock);
};
