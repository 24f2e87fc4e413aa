@echo off
rem Builds the plug-in with Microsoft's compiler and compares its binary interface with the host's
rem libraries. Not yet run on a real Windows: this project is built on Debian.
rem
rem Needs Visual Studio 2022 with "Desktop development with C++", which includes CMake and Ninja. Run
rem it in the "x64 Native Tools Command Prompt":
rem
rem     scripts\build-on-windows.cmd DIR
rem
rem DIR contains include\ (qmx.h qmxcam.h Arbor.h dns_sd.h), lib\ (import libraries) and bin\ (DLLs)
rem of the host. Use the host's runtime: the presets use the DLL runtime of a release build (/MD).
setlocal
cd /d "%~dp0.."
if "%~1"=="" echo usage: %~nx0 DIR & exit /b 2

rem Expect no warning; the preset makes each one an error. The programs and tests are left out,
rem because their libraries come from Debian's sources.
cmake --preset msvc -DKORU_HOST_SDK="%~f1" || exit /b 1
cmake --build --preset msvc || exit /b 1
set plugin=build\msvc\bin\qmxcamKORURTSP.dll

rem Expect exactly one exported function.
dumpbin /nologo /exports %plugin% > build\msvc\exports.txt || exit /b 1
findstr /c:" qmxInitPlugin" build\msvc\exports.txt >nul || echo %plugin% does not export qmxInitPlugin
findstr /c:" 1 number of functions" build\msvc\exports.txt >nul || echo %plugin% exports more than one function

rem Expect that the host exports each name that the plug-in imports. A name that is missing shows
rem which declaration in include\ differs from the library.
del build\msvc\host-exports.txt 2>nul
for %%d in (qmx qmxcam Arbor dns_sd) do dumpbin /nologo /exports "%~f1\bin\%%d.dll" >> build\msvc\host-exports.txt
set missing=0
for /f "usebackq" %%n in ("host\imported-names.txt") do (
    findstr /l /c:"%%n" build\msvc\host-exports.txt >nul || (echo the host exports no %%n & set missing=1)
)
if %missing%==1 exit /b 1
echo %plugin% is built and its imports are there. Now compare the order of the virtual functions and
echo the offsets of the fields with host\binary-interface.txt: the linker does not see those.
echo "cl /d1reportAllClassLayout" prints those of the host's headers.
