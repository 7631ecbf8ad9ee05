#include "tests/machrun/ThreadLocals.h"

#include "tests/machrun/MachO.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <map>
#include <mutex>
#include <pthread.h>

namespace
{
/// The variables of one thread, for each image.
struct ST_Blocks
{
    std::map<const CLS_Image*, void*> m_mapBlocks;
    int m_iRounds = 0; ///< rounds of destructors at the end of the thread
};

thread_local ST_Blocks* t_pBlocks = nullptr;

pthread_key_t GetKey();

void FreeBlocks(void* _pBlocks)
{
    auto* const pBlocks = static_cast<ST_Blocks*>(_pBlocks);
    // Destructors of other keys may still use the variables, so this waits for the last round.
    if (++pBlocks->m_iRounds < PTHREAD_DESTRUCTOR_ITERATIONS - 1)
    {
        pthread_setspecific(GetKey(), pBlocks);
        return;
    }
    for (const auto& [pImage, pBlock] : pBlocks->m_mapBlocks)
    {
        std::free(pBlock);
    }
    delete pBlocks;
    t_pBlocks = nullptr;
}

pthread_key_t GetKey()
{
    static const pthread_key_t s_uiKey = []
    {
        pthread_key_t uiKey = 0;
        pthread_key_create(&uiKey, FreeBlocks);
        return uiKey;
    }();
    return s_uiKey;
}

void* CopyTemplate(const CLS_Image& _clsImage)
{
    const ST_ThreadLocalTemplate& stTemplate = _clsImage.GetFile().GetThreadLocals();
    const std::uint64_t uiSize = (stTemplate.m_uiSize + stTemplate.m_uiAlignment - 1) /
                                 stTemplate.m_uiAlignment * stTemplate.m_uiAlignment;
    void* const pBlock = std::aligned_alloc(stTemplate.m_uiAlignment, uiSize);
    if (pBlock == nullptr)
    {
        std::abort(); // as the system does
    }
    std::memcpy(pBlock, _clsImage.At(stTemplate.m_uiAddress), stTemplate.m_uiSize);
    return pBlock;
}
} // namespace

/// The address of the calling thread's variable.
extern "C" __attribute__((used)) void* GetThreadLocal(const MachO::ST_ThreadLocalDescriptor* _pDescriptor)
{
    if (t_pBlocks == nullptr)
    {
        t_pBlocks = new ST_Blocks;
        pthread_setspecific(GetKey(), t_pBlocks);
    }
    const auto* const pImage = static_cast<const CLS_Image*>(_pDescriptor->m_pImage);
    void*& pBlock = t_pBlocks->m_mapBlocks[pImage];
    if (pBlock == nullptr)
    {
        pBlock = CopyTemplate(*pImage);
    }
    return static_cast<std::uint8_t*>(pBlock) + _pDescriptor->m_uiOffset;
}

// Calls the function above, and preserves all registers except that of the result. The callers of a
// descriptor's function expect this.
extern "C" void* KeepRegistersAndGetThreadLocal(MachO::ST_ThreadLocalDescriptor* _pDescriptor);

asm(R"(
.text
.globl KeepRegistersAndGetThreadLocal
.type KeepRegistersAndGetThreadLocal, @function
KeepRegistersAndGetThreadLocal:
    pushq %rbp
    movq %rsp, %rbp
    pushq %rdi
    pushq %rsi
    pushq %rdx
    pushq %rcx
    pushq %r8
    pushq %r9
    pushq %r10
    pushq %r11
    subq $256, %rsp
    andq $-16, %rsp
    .set place, 0
    .irp register, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
    movups %xmm\register, place(%rsp)
    .set place, place + 16
    .endr
    call GetThreadLocal
    .set place, 0
    .irp register, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15
    movups place(%rsp), %xmm\register
    .set place, place + 16
    .endr
    leaq -64(%rbp), %rsp
    popq %r11
    popq %r10
    popq %r9
    popq %r8
    popq %rcx
    popq %rdx
    popq %rsi
    popq %rdi
    popq %rbp
    ret
.size KeepRegistersAndGetThreadLocal, .-KeepRegistersAndGetThreadLocal
)");

namespace ThreadLocals
{
void Prepare(CLS_Image& _clsImage)
{
    for (const ST_Section& stSection : _clsImage.GetFile().GetSections())
    {
        if (stSection.m_uiType != MachO::SECTION_THREAD_LOCAL_DESCRIPTORS)
        {
            continue;
        }
        auto* const pFirst =
            reinterpret_cast<MachO::ST_ThreadLocalDescriptor*>(_clsImage.At(stSection.m_uiAddress));
        std::for_each(pFirst, pFirst + stSection.m_uiSize / sizeof(*pFirst),
                      [&](MachO::ST_ThreadLocalDescriptor& _stDescriptor)
                      {
                          _stDescriptor.m_funGet = KeepRegistersAndGetThreadLocal;
                          _stDescriptor.m_pImage = &_clsImage;
                      });
    }
}
} // namespace ThreadLocals
