/*
 * The operator's tool for the process monitors of a machine.
 */
#include "commands/command_line.h"

int main(int argc, char** argv)
{
    return monpctl::run(argc, argv);
}
