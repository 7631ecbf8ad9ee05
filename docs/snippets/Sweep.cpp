#include "QuenHost/TaskSweep.h"

void Use()
{
#include BLOCK
}
