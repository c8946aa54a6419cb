# What an image's code calls with registers that it wants kept, or with the arguments of a method
# that is yet to be found.
    .intel_syntax noprefix
    .text

# Saves the registers that carry arguments; the number of vector registers in rax belongs to them.
.macro SAVE_ARGUMENTS
    push rbp
    mov rbp, rsp
    sub rsp, 0xc0
    mov [rsp], rdi
    mov [rsp+8], rsi
    mov [rsp+16], rdx
    mov [rsp+24], rcx
    mov [rsp+32], r8
    mov [rsp+40], r9
    mov [rsp+48], rax
    movaps [rsp+0x40], xmm0
    movaps [rsp+0x50], xmm1
    movaps [rsp+0x60], xmm2
    movaps [rsp+0x70], xmm3
    movaps [rsp+0x80], xmm4
    movaps [rsp+0x90], xmm5
    movaps [rsp+0xa0], xmm6
    movaps [rsp+0xb0], xmm7
.endm
.macro RESTORE_ARGUMENTS
    mov rdi, [rsp]
    mov rsi, [rsp+8]
    mov rdx, [rsp+16]
    mov rcx, [rsp+24]
    mov r8, [rsp+32]
    mov r9, [rsp+40]
    mov rax, [rsp+48]
    movaps xmm0, [rsp+0x40]
    movaps xmm1, [rsp+0x50]
    movaps xmm2, [rsp+0x60]
    movaps xmm3, [rsp+0x70]
    movaps xmm4, [rsp+0x80]
    movaps xmm5, [rsp+0x90]
    movaps xmm6, [rsp+0xa0]
    movaps xmm7, [rsp+0xb0]
    leave
.endm

    .globl macho_send
    .hidden macho_send
    .type macho_send, @function
macho_send:
    test rdi, rdi
    je 1f
    SAVE_ARGUMENTS
    call macho_find_method@PLT
    mov r11, rax
    RESTORE_ARGUMENTS
    jmp r11
1:  xor eax, eax             # nil answers with nothing
    xor edx, edx
    xorps xmm0, xmm0
    xorps xmm1, xmm1
    ret

    .globl macho_send_super
    .hidden macho_send_super
    .type macho_send_super, @function
macho_send_super:
    SAVE_ARGUMENTS
    call macho_find_super_method@PLT
    mov r11, rax
    RESTORE_ARGUMENTS
    mov rdi, [rdi]           # the receiver is the first word of what was passed
    jmp r11

# rdi: the variable's descriptor. Everything but rax is kept.
    .globl macho_thread_local_thunk
    .hidden macho_thread_local_thunk
    .type macho_thread_local_thunk, @function
macho_thread_local_thunk:
    SAVE_ARGUMENTS
    push r10
    push r11
    sub rsp, 0x80
    movups [rsp], xmm8
    movups [rsp+0x10], xmm9
    movups [rsp+0x20], xmm10
    movups [rsp+0x30], xmm11
    movups [rsp+0x40], xmm12
    movups [rsp+0x50], xmm13
    movups [rsp+0x60], xmm14
    movups [rsp+0x70], xmm15
    call macho_thread_local_address@PLT
    movups xmm8, [rsp]
    movups xmm9, [rsp+0x10]
    movups xmm10, [rsp+0x20]
    movups xmm11, [rsp+0x30]
    movups xmm12, [rsp+0x40]
    movups xmm13, [rsp+0x50]
    movups xmm14, [rsp+0x60]
    movups xmm15, [rsp+0x70]
    add rsp, 0x80
    pop r11
    pop r10
    mov [rsp+48], rax
    RESTORE_ARGUMENTS
    ret
    .section .note.GNU-stack,"",@progbits
