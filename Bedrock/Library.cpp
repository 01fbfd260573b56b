// Every object of the library that has a dynamic initialiser stands in this file, in the order in which the library
// starts; the last one is the attach step, and its destructor the detach step. The language runs them in this order
// when the library is loaded and in reverse when it is unloaded or the process ends. All other statics are constinit.

#include <Bedrock/threads/Time.h>

namespace Zem
{

const std::int64_t Time::freq = Time::QueryCounterFrequency();

} // namespace Zem
