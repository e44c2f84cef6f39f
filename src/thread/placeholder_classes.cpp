// placeholder_classes.cpp - vorn::Condition and vorn::RWLock, whose members do nothing.
//
// Deliberate: clients rely on calls that neither block nor wake. The working objects are VornCondition and
// VornRWLock.
#include <vorn/sync.hpp>

namespace vorn {

Condition::Condition(Lockable*, bool) {}
Condition::~Condition() {}
void Condition::Wait() {}
bool Condition::TimedWait(unsigned)
{
    return false;
}
void Condition::Signal() {}
void Condition::Broadcast() {}

RWLock::RWLock(bool) {}
RWLock::~RWLock() {}
void RWLock::ReadLock() {}
void RWLock::WriteLock() {}
void RWLock::Unlock() {}
bool RWLock::TryReadLock()
{
    return false;
}
bool RWLock::TryWriteLock()
{
    return false;
}

}  // namespace vorn
