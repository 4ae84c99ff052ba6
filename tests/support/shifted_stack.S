/* int32_t callOnShiftedStack(const void* function, uint32_t shift, const uint32_t* words, size_t
 * count): calls the function with so many words of arguments, on a stack that stands `shift` bytes
 * (0, 4, 8 or 12) below the alignment that today's 32-bit convention promises, as callers from old
 * compilers and code generators leave it. */
#ifdef __i386__
        .text
        .globl  callOnShiftedStack
        .type   callOnShiftedStack, @function
callOnShiftedStack:
        pushl   %ebp
        movl    %esp, %ebp
        pushl   %esi
        pushl   %edi
        movl    20(%ebp), %ecx
        leal    0(,%ecx,4), %eax
        subl    %eax, %esp
        andl    $-16, %esp
        subl    12(%ebp), %esp
        movl    16(%ebp), %esi
        movl    %esp, %edi
        rep movsl
        call    *8(%ebp)
        leal    -8(%ebp), %esp
        popl    %edi
        popl    %esi
        popl    %ebp
        ret
        .size   callOnShiftedStack, . - callOnShiftedStack
#endif
        .section .note.GNU-stack, "", @progbits
