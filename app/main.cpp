#include "app/StartUp.h"

int main(int argc, char** argv)
{
    return tessaly::app::RunTessaly(argc, argv);
}
