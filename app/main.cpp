#include "app/StartUp.h"

// The program people start. It links no window libraries, so that a
// command-line export starts at once; the window is a program of its own.
int main(int argc, char** argv)
{
    return tessaly::app::RunTessaly(argc, argv, tessaly::app::WindowProgramHooks());
}
