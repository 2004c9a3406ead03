#include "qastore/commands.h"

int main(int argc, char** argv) { return qaaisp::qastore::RunQastore(argc, argv); }
