/* int32_t callOnShiftedStack(void* function, uint32_t shift, a, b, c): calls function(a, b, c) with a
 * stack that stands `shift` bytes (0, 4, 8 or 12) below the alignment that today's 32-bit convention
 * promises, as callers from old compilers and code generators leave it. */
#ifdef __i386__
        .text
        .globl  callOnShiftedStack
        .type   callOnShiftedStack, @function
callOnShiftedStack:
        pushl   %ebp
        movl    %esp, %ebp
        andl    $-16, %esp
        subl    12(%ebp), %esp
        subl    $4, %esp                /* with the three arguments: a multiple of 16 */
        pushl   24(%ebp)
        pushl   20(%ebp)
        pushl   16(%ebp)
        call    *8(%ebp)
        leave
        ret
        .size   callOnShiftedStack, . - callOnShiftedStack
#endif
        .section .note.GNU-stack, "", @progbits
