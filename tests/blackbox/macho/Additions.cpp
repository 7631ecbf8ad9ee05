// Additions that make a library faulty.

#ifdef ZEL_TEST_YOUNG_NAME
extern "C" int os_sync_wake_by_address_any(void*, unsigned long, unsigned); // since macOS 14.4
#endif
#ifdef ZEL_TEST_NAME_OF_NOBODY
extern "C" int ZelTestMissingName();
#endif
#ifdef ZEL_TEST_THREAD_LOCAL
static thread_local int g_iCalls = 0;
#endif

extern "C" __attribute__((visibility("default"))) int ZelAddition()
{
#if defined(ZEL_TEST_YOUNG_NAME)
    return os_sync_wake_by_address_any(nullptr, 0, 0);
#elif defined(ZEL_TEST_NAME_OF_NOBODY)
    return ZelTestMissingName();
#elif defined(ZEL_TEST_THREAD_LOCAL)
    return ++g_iCalls;
#else
    return 0;
#endif
}
