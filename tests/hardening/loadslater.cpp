// A module that loads another library by its bare name once it runs itself, as middleware does,
// and writes what came of it to the file that the environment names.
#include <windows.h>

#include <fstream>

extern "C" __declspec(dllexport) unsigned long C_GetFunctionList(void** list);

unsigned long C_GetFunctionList(void**) {
    const HMODULE library = LoadLibraryA("plantedlibrary.dll");
    char record[MAX_PATH];
    if (GetEnvironmentVariableA("LOADSLATER_RECORD", record, MAX_PATH) != 0)
        std::ofstream(record) << (library ? "found" : "not found");
    if (library)
        FreeLibrary(library);
    return 0x06; // CKR_FUNCTION_FAILED
}
