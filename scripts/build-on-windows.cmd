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
rem of the host. Use the host's runtime: the preset uses the DLL runtime of a release build (/MD).
setlocal
if "%~1"=="" echo usage: %~nx0 DIR & exit /b 2
set "sdk=%~f1"
cd /d "%~dp0.."
for %%d in (qmx qmxcam Arbor dns_sd) do if not exist "%sdk%\bin\%%d.dll" echo %sdk%\bin\%%d.dll is missing & exit /b 1

rem Expect no warning; the preset makes each one an error. The programs and tests are left out,
rem because their libraries come from Debian's sources.
cmake --preset msvc -DKORU_HOST_SDK="%sdk%" || exit /b 1
cmake --build --preset msvc || exit /b 1
set plugin=build\msvc\bin\qmxcamKORURTSP.dll
set lists=build\msvc
set wrong=0

rem Expect exactly one exported function.
dumpbin /nologo /exports %plugin% > %lists%\exports.txt || exit /b 1
findstr /r /c:" qmxInitPlugin *$" /c:" qmxInitPlugin =" %lists%\exports.txt >nul || (echo %plugin% does not export qmxInitPlugin & set wrong=1)
findstr /c:" 1 number of functions" %lists%\exports.txt >nul || (echo %plugin% exports more than one function & set wrong=1)

rem Expect that the plug-in imports the names in host\imported-names.txt, and that the host exports each
rem of them. A name that is missing shows which declaration in include\ differs from the library.
rem Before each name dumpbin prints numbers and a space; after it, a space or the end of the line.
dumpbin /nologo /imports %plugin% > %lists%\imports.txt || exit /b 1
type nul > %lists%\host-exports.txt
for %%d in (qmx qmxcam Arbor dns_sd) do dumpbin /nologo /exports "%sdk%\bin\%%d.dll" | findstr /v /c:"Dump of file" >> %lists%\host-exports.txt
for /f "usebackq" %%n in ("host\imported-names.txt") do (
    findstr /l /e /c:" %%n" %lists%\imports.txt >nul || (echo the plug-in does not import %%n & set wrong=1)
    findstr /l /e /c:" %%n" %lists%\host-exports.txt >nul || findstr /l /c:" %%n " %lists%\host-exports.txt >nul || (echo the host does not export %%n & set wrong=1)
)
if %wrong%==1 exit /b 1
echo %plugin% is built, and the host exports what it imports. Now compare the order of the virtual
echo functions and the offsets of the fields with host\binary-interface.txt, because the linker does not
echo check them. "cl /d1reportAllClassLayout" prints those of the host's headers.
