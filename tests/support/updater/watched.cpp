// A program to be watched while it runs:
//   watched echo ARGUMENT...  says its arguments, one a line, the variable WATCHED and its input,
//                             and ends with 3
//   watched wait COUNT        says its process id, then each Ctrl-C, and ends with 7 after so many
//   watched hang              says its process id, and does nothing about Ctrl-C
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

HANDLE received;

BOOL WINAPI receive(DWORD event) {
    if (event != CTRL_C_EVENT)
        return FALSE;
    ReleaseSemaphore(received, 1, nullptr);
    return TRUE;
}

int echo(int count, char** arguments) {
    for (int i = 2; i != count; ++i)
        std::printf("[%s]\n", arguments[i]);
    const char* variable = std::getenv("WATCHED");
    std::printf("%s\n", variable ? variable : "");
    for (int c = std::getchar(); c != EOF; c = std::getchar())
        std::putchar(c);
    return 3;
}

void sayReady() {
    std::printf("%lu is ready\n", GetCurrentProcessId());
    std::fflush(stdout);
}

int hang() {
    sayReady();
    Sleep(INFINITE);
    return 0;
}

int waitForEvents(int count) {
    received = CreateSemaphoreW(nullptr, 0, count, nullptr);
    SetConsoleCtrlHandler(receive, TRUE);
    std::fputs("waiting\n", stderr);
    std::fflush(stderr); // Wine's is buffered
    sayReady();
    for (int i = 0; i != count; ++i) {
        WaitForSingleObject(received, INFINITE);
        std::puts("Ctrl-C");
        std::fflush(stdout);
    }
    return 7;
}

} // namespace

int main(int count, char** arguments) {
    const std::string_view command = count > 1 ? arguments[1] : "";
    if (command == "echo")
        return echo(count, arguments);
    if (command == "wait" && count == 3)
        return waitForEvents(std::atoi(arguments[2]));
    if (command == "hang")
        return hang();
    return 99;
}
