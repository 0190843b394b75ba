// The subject of the dispatch benchmark: a gadget whose Size is a plain LONG field. It is
// compiled apart from the benchmark loops, so that the direct calls there are real
// virtual calls, as a client across a library boundary makes them.
#pragma once

#include "TessalyTest.h"

namespace tessaly::bench {

// A new gadget with one reference, as ITestGadget.
ITestGadget* NewBenchGadget();

}  // namespace tessaly::bench
