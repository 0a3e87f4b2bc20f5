// main of the Windows test programs. `--sdk-dir=NAME` makes the folder NAME beside the
// program the place where TeliCamApi64.dll is looked for, as an installer would put
// the vendor's DLL on the search path; without it no such DLL can be found, since
// none lies beside the program.

#include <windows.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "tests/windows/ProgramFolder.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const std::string option = "--sdk-dir=";
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument.rfind(option, 0) != 0) {
            std::fprintf(stderr, "unknown argument %s\n", argv[i]);
            return 2;
        }
        const std::string folder = Tavri::test::programFolder() + "\\" + argument.substr(option.size());
        if (!::SetDllDirectoryA(folder.c_str())) {
            std::fprintf(stderr, "SetDllDirectory(%s) failed\n", folder.c_str());
            return 2;
        }
    }
    return RUN_ALL_TESTS();
}
