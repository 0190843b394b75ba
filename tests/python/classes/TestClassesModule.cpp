// The Python module `tessaly_testclasses`: importing it loads the test class Probe, the C++
// suites' test classes and their type libraries into the process, where
// tessaly.CreateObject finds them.
#include <pybind11/pybind11.h>

PYBIND11_MODULE(tessaly_testclasses, module) {
    module.doc() = "Test classes of the tessaly Python client: import, then tessaly.CreateObject(\"TessalyPythonTest.Probe\").";
}
