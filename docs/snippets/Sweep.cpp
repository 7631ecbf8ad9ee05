#include "examples/task_sweep/TaskSweep.h"

void Use();

void Use()
{
#include BLOCK
}
