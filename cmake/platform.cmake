# Chooses the platform layer's implementations and the features the POSIX
# one may use. Sets STRIX_PLATFORM_SOURCES, STRIX_PLATFORM_DEFINITIONS (for
# the library), STRIX_MAIN_SOURCE and STRIX_MAIN_LINK_OPTIONS (for the
# command).
set(dir ${PROJECT_SOURCE_DIR}/src/strix/platform)
set(STRIX_PLATFORM_DEFINITIONS "")
set(STRIX_MAIN_LINK_OPTIONS "")

if(WIN32)
  set(STRIX_PLATFORM_SOURCES ${dir}/files_windows.cpp ${dir}/outputs_windows.cpp
                             ${dir}/process_windows.cpp)
  # Windows 10 and later: processor groups and job objects' CPU rates.
  list(APPEND STRIX_PLATFORM_DEFINITIONS _WIN32_WINNT=0x0A00 WIN32_LEAN_AND_MEAN NOMINMAX)
  # wmain takes the arguments in UTF-16.
  set(STRIX_MAIN_SOURCE ${dir}/wmain.cpp)
  if(MINGW)
    set(STRIX_MAIN_LINK_OPTIONS -municode)
  endif()
  return()
endif()

set(STRIX_PLATFORM_SOURCES ${dir}/files_posix.cpp ${dir}/outputs_posix.cpp
                           ${dir}/process_posix.cpp)
set(STRIX_MAIN_SOURCE ${PROJECT_SOURCE_DIR}/src/strix/main.cpp)
if(STRIX_PORTABLE)
  return()
endif()

# Each system-specific call is used where the system has it; without it,
# the portable fallback (sysconf's processors online, no quota, no advice).
include(CheckCXXSymbolExists)
check_cxx_symbol_exists(sched_getaffinity sched.h STRIX_HAVE_SCHED_GETAFFINITY)
check_cxx_symbol_exists(cpuset_getaffinity "sys/param.h;sys/cpuset.h"
                        STRIX_HAVE_CPUSET_GETAFFINITY)
if(APPLE)
  check_cxx_symbol_exists(sysctlbyname sys/sysctl.h STRIX_HAVE_HW_ACTIVECPU)
endif()
check_cxx_symbol_exists(MADV_HUGEPAGE sys/mman.h STRIX_HAVE_MADV_HUGEPAGE)
foreach(feature SCHED_GETAFFINITY CPUSET_GETAFFINITY HW_ACTIVECPU MADV_HUGEPAGE)
  if(STRIX_HAVE_${feature})
    list(APPEND STRIX_PLATFORM_DEFINITIONS STRIX_HAVE_${feature}=1)
  endif()
endforeach()
# The cgroup CPU quota is Linux's.
if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
  list(APPEND STRIX_PLATFORM_DEFINITIONS STRIX_HAVE_CGROUP=1)
endif()
