#include "examples/task_sweep/TaskSweep.h"

void Use()
{
#include BLOCK
}
