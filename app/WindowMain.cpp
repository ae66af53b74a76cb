#include "app/WindowStart.h"

// The window program, started in place of "tessaly" when a window is wanted.
// Started on its own it does everything "tessaly" does.
int main(int argc, char** argv)
{
    return tessaly::app::RunTessaly(argc, argv, tessaly::app::WindowHooks());
}
