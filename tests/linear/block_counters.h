/* Put before each source of the module that is counted.  The compiler calls a function in every
   basic block.  On x86 the assembler makes each of those calls an increment of a counter of the
   block's own: no call, and no counter that block after block has to wait for. */
#ifndef TESTS_LINEAR_BLOCK_COUNTERS_H
#define TESTS_LINEAR_BLOCK_COUNTERS_H

#ifdef __x86_64__
asm(R"(
.macro call target:vararg
    .ifc "\target", "__sanitizer_cov_trace_pc"
        count_block
    .else
    .ifc "\target", "__sanitizer_cov_trace_pc@PLT"
        count_block
    .else
        callq \target
    .endif
    .endif
.endm
.macro count_block
    incq 1f(%rip)
    .pushsection block_counters, "aw"
1:  .quad 0
    .popsection
.endm
)");
#endif

#endif
