#ifndef TARVIO_SRC_PACKAGE_TQ_TBX_PACKAGE_BINDING_OPERAND_H
#define TARVIO_SRC_PACKAGE_TQ_TBX_PACKAGE_BINDING_OPERAND_H

namespace tarvio {

// Whether a path or name can stand in a command line: the shell gets it without quotes, and it must
// neither become a command nor an option there.
bool is_plain_operand(const char* operand);

}  // namespace tarvio

#endif
