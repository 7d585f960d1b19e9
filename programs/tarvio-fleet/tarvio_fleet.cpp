#include "program.h"

int main(int argc, char** argv) { return client::run_program(argc, argv); }
