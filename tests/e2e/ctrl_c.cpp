// Interrupts a conversion with Ctrl-C as a user at the console does, for the
// end-to-end cases under Wine: `ctrl_c STRIX INPUT OUTPUT` starts
// `STRIX -.b OUTPUT` in this console, feeds it the first half of INPUT,
// sends Ctrl-C to the console once OUTPUT is created or truncated, and
// prints strix's exit status in hex when it has ended.
#include <windows.h>

#include <cstdio>    // std::printf
#include <fstream>   // std::ifstream
#include <iterator>  // std::istreambuf_iterator
#include <string>    // std::string, std::wstring

int wmain(int argc, wchar_t** argv) {
  if (argc != 4) return 2;
  std::ifstream in(argv[2], std::ios::binary);
  const std::string data{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
  HANDLE read_end, write_end;
  if (!CreatePipe(&read_end, &write_end, &inherit, 0)) return 2;
  SetHandleInformation(write_end, HANDLE_FLAG_INHERIT, 0);
  WIN32_FILE_ATTRIBUTE_DATA file{};
  const bool existed = GetFileAttributesExW(argv[3], GetFileExInfoStandard, &file);
  std::wstring command = L"\"" + std::wstring(argv[1]) + L"\" -.b \"" + argv[3] + L"\"";
  STARTUPINFOW start{};
  start.cb = sizeof start;
  start.dwFlags = STARTF_USESTDHANDLES;
  start.hStdInput = read_end;
  start.hStdOutput = GetStdHandle(STD_OUTPUT_HANDLE);
  start.hStdError = GetStdHandle(STD_ERROR_HANDLE);
  PROCESS_INFORMATION strix;
  if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &start,
                      &strix)) {
    return 2;
  }
  CloseHandle(read_end);
  DWORD written;
  WriteFile(write_end, data.data(), static_cast<DWORD>(data.size() / 2), &written, nullptr);
  for (int i = 0; i < 3000; ++i) {
    if (GetFileAttributesExW(argv[3], GetFileExInfoStandard, &file) &&
        (!existed || file.nFileSizeLow == 0)) {
      break;
    }
    Sleep(10);
  }
  SetConsoleCtrlHandler(nullptr, TRUE);  // this program goes on
  GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0);
  WaitForSingleObject(strix.hProcess, 60000);
  DWORD status = 0;
  GetExitCodeProcess(strix.hProcess, &status);
  CloseHandle(write_end);
  std::printf("%lx\n", status);
  return 0;
}
