// The belvane command-line tool: one binary, one subcommand per service.
#include "commands.h"

#include <cstdio>
#include <cstring>
#include <string>

int main(int argc, char** argv) { return belvane::tool::dispatch(argc, argv); }
