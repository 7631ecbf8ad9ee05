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
/// Pitfall: callbacks, and the log records of their failures, run with the callback lock held shared. A
/// callback, or a "PrintLog", that registers or removes a callback on the same object deadlocks.
///
/// Threads: thread-safe; any thread may call. Parameters and callbacks each have their own reader/writer
/// lock, and no operation holds both.
///
/// Waits: only for the lock that the operation names.
/// Fails: std::bad_alloc propagates and leaves the object as it was.
class CLS_Basic
{
public:
    CLS_Basic() = default;
    CLS_Basic(const CLS_Basic&) = delete;
    CLS_Basic& operator=(const CLS_Basic&) = delete;

    /// Name of the object's run-time class, as the platform decorates it, without namespaces.
    ///
    /// Waits: for a lock of its own, for one look-up.
    /// Owns: the text stays valid for the life of the process.
    virtual const char* GetClassCode();

    /// The module name of the object's log records: the class code, unless a class overrides it.
    ///
    /// If an override of this or of GetClassCode returns null, the module is null and the texts leave the
    /// name out.
    virtual const char* GetModuleCode();

    /// Sets the parameter "__id__".
    virtual void SetId(const CLS_CVariant& _clsId);

    /// The parameter "__id__" as a string. If there is none, creates an id with Util::GetUuid and keeps it.
    ///
    /// If two threads ask first at the same time, the last to store wins.
    ///
    /// Fails: the exceptions of Util::GetUuid propagate.
    virtual std::string GetId();

    /// Registers a callback and returns its key. _pUser is passed on to the callback, and never touched.
    ///
    /// Waits: for the callback lock, exclusive.
    /// Fails: the exceptions of Util::GetUuid propagate.
    virtual std::string SetCallBackResultFun(const CallBackResultFun& _funCallBack, void* _pUser);

    /// Forgets a callback. Ignores an unknown key.
    ///
    /// Waits: for the callback lock, exclusive, and so for running callbacks.
    virtual void RmoveCallBackResultFun(const std::string& _strKey);

    /// Sets one parameter to a deep copy of the value.
    ///
    /// Waits: for the parameter lock, exclusive.
    virtual void SetParam(const std::string& _strName, const CLS_CVariant& _clsValue);

    /// Replaces all parameters, including the id.
    ///
    /// Waits: for the parameter lock, exclusive.
    virtual void SetParam(const std::map<std::string, CLS_CVariant>& _mapParam);

    /// Drops a parameter. Ignores an unknown name.
    ///
    /// Waits: for the parameter lock, exclusive.
    virtual void RemoveParam(const std::string& _strName);

    /// A copy of one parameter; a variant of type None when there is none.
    ///
    /// Waits: for the parameter lock, shared.
    virtual CLS_CVariant Param(const std::string& _strName);

    /// A copy of all parameters.
    ///
    /// Waits: for the parameter lock, shared.
    virtual std::map<std::string, CLS_CVariant> Param();

    /// The parameters as Util::MapToString prints them.
    ///
    /// Waits: for the parameter lock, shared.
    virtual std::string ParamToString();

    /// Calls the callback with this key; if the key is empty, calls all callbacks in key order.
    ///
    /// An unknown key causes a log record and counts as an empty callback. Calling that fails, which causes a
    /// second log record. Kept on purpose: this leaves an empty entry behind, made under the shared lock. So
    /// callers that share the object between threads must pass only known keys.
    ///
    /// Waits: for the callback lock, shared, which it holds as long as the callbacks run.
    /// Fails: an exception from a callback becomes a log record.
    virtual void RunCallBackFun(const std::string& _strFirst,
                                const std::map<std::string, CLS_CVariant>& _mapParam,
                                const std::string& _strSecond, const std::string& _strKey);

protected:
    /// Does what SetParam does, without a copy of the value.
    void StoreParam(const std::string& _strName, CLS_CVariant&& _clsValue) ZEL_EXCLUDES(m_smParamLock);

private:
    using CallBackEntry = std::pair<CallBackResultFun, void*>;

    /// Calls one callback; an exception becomes a log record.
    void RunOneCallBack(const CallBackEntry& _pairEntry, const std::string& _strFirst,
                        const std::map<std::string, CLS_CVariant>& _mapParam, const std::string& _strSecond);
    /// Writes a log record about a callback.
    void RecordCallBack(const std::string& _strText, int _iLine = __builtin_LINE());

    CLS_SharedMutex m_smParamLock;
    std::map<std::string, CLS_CVariant> m_mapParam ZEL_GUARDED_BY(m_smParamLock); ///< the parameters, by name
    CLS_SharedMutex m_smCallBackLock;
    /// Callback and user data, by key.
    std::map<std::string, CallBackEntry> m_mapCallBackFun ZEL_GUARDED_BY(m_smCallBackLock);
};
