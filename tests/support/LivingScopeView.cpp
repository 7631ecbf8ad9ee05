#include "tests/support/LivingScopeView.h"

#include <new>

namespace LivingScopeView
{
void ForgetAll()
{
    new (&CLS_LivingScope::GetAll().m_chnScopes) CLS_LivingScope::Scopes;
}
} // namespace LivingScopeView
