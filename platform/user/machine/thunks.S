# Where the engine's object makes its indirect calls and returns. A kernel fills these with what
# its processor needs; here they only jump and return.

        .text

        .macro  indirect_thunk register
        .globl  __x86_indirect_thunk_\register
        .type   __x86_indirect_thunk_\register, @function
__x86_indirect_thunk_\register:
        jmp     *%\register
        int3
        .size   __x86_indirect_thunk_\register, .-__x86_indirect_thunk_\register
        .endm

        indirect_thunk rax
        indirect_thunk rbx
        indirect_thunk rcx
        indirect_thunk rdx
        indirect_thunk rsi
        indirect_thunk rdi
        indirect_thunk rbp
        indirect_thunk r8
        indirect_thunk r9
        indirect_thunk r10
        indirect_thunk r11
        indirect_thunk r12
        indirect_thunk r13
        indirect_thunk r14
        indirect_thunk r15

        .globl  __x86_return_thunk
        .type   __x86_return_thunk, @function
__x86_return_thunk:
        ret
        int3
        .size   __x86_return_thunk, .-__x86_return_thunk

        .section .note.GNU-stack, "", @progbits
