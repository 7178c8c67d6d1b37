// The parts of the table of fused passes that have files of their own. For code that is compiled
// once per instruction set.
#pragma once

#include "kernels/processor/fused_pass.h"

namespace zeph::cpu::ZEPH_ISA {

void fusedFirstColumns(const FusedPass& pass, int tile, int participant);
void fusedColumns(const FusedPass& pass, int tile, int participant);
void fusedStateToRows(const FusedPass& pass, int tile, int participant);
void fusedCoefficients(const FusedPass& pass, int tile, int participant);

}  // namespace zeph::cpu::ZEPH_ISA
