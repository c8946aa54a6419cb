// What an image's code calls with registers that it wants kept, or with the arguments of a method
// that is yet to be found; and functions with variable arguments.
    .text

// Saves the registers that carry arguments, and where the result is wanted.
.macro SAVE_ARGUMENTS
    stp x29, x30, [sp, #-0xe0]!
    mov x29, sp
    stp x0, x1, [sp, #0x10]
    stp x2, x3, [sp, #0x20]
    stp x4, x5, [sp, #0x30]
    stp x6, x7, [sp, #0x40]
    str x8, [sp, #0x50]
    stp q0, q1, [sp, #0x60]
    stp q2, q3, [sp, #0x80]
    stp q4, q5, [sp, #0xa0]
    stp q6, q7, [sp, #0xc0]
.endm
.macro RESTORE_ARGUMENTS
    ldp x0, x1, [sp, #0x10]
    ldp x2, x3, [sp, #0x20]
    ldp x4, x5, [sp, #0x30]
    ldp x6, x7, [sp, #0x40]
    ldr x8, [sp, #0x50]
    ldp q0, q1, [sp, #0x60]
    ldp q2, q3, [sp, #0x80]
    ldp q4, q5, [sp, #0xa0]
    ldp q6, q7, [sp, #0xc0]
    ldp x29, x30, [sp], #0xe0
.endm

.macro FUNCTION name
    .globl \name
    .hidden \name
    .type \name, %function
\name:
.endm

FUNCTION macho_send
    cbz x0, 1f
    SAVE_ARGUMENTS
    bl macho_find_method
    mov x16, x0
    RESTORE_ARGUMENTS
    br x16
1:  mov x1, #0               // nil answers with nothing
    movi d0, #0
    movi d1, #0
    movi d2, #0
    movi d3, #0
    ret

FUNCTION macho_send_super
    SAVE_ARGUMENTS
    bl macho_find_super_method
    mov x16, x0
    RESTORE_ARGUMENTS
    ldr x0, [x0]             // the receiver is the first word of what was passed
    br x16

// x0: the variable's descriptor. Everything but x0, x16 and x17 is kept.
FUNCTION macho_thread_local_thunk
    SAVE_ARGUMENTS
    sub sp, sp, #0x140
    stp x9, x10, [sp]
    stp x11, x12, [sp, #0x10]
    stp x13, x14, [sp, #0x20]
    str x15, [sp, #0x30]
    stp q16, q17, [sp, #0x40]
    stp q18, q19, [sp, #0x60]
    stp q20, q21, [sp, #0x80]
    stp q22, q23, [sp, #0xa0]
    stp q24, q25, [sp, #0xc0]
    stp q26, q27, [sp, #0xe0]
    stp q28, q29, [sp, #0x100]
    stp q30, q31, [sp, #0x120]
    bl macho_thread_local_address
    ldp x9, x10, [sp]
    ldp x11, x12, [sp, #0x10]
    ldp x13, x14, [sp, #0x20]
    ldr x15, [sp, #0x30]
    ldp q16, q17, [sp, #0x40]
    ldp q18, q19, [sp, #0x60]
    ldp q20, q21, [sp, #0x80]
    ldp q22, q23, [sp, #0xa0]
    ldp q24, q25, [sp, #0xc0]
    ldp q26, q27, [sp, #0xe0]
    ldp q28, q29, [sp, #0x100]
    ldp q30, q31, [sp, #0x120]
    add sp, sp, #0x140
    str x0, [sp, #0x10]
    RESTORE_ARGUMENTS
    ret

// Hands on where the variable arguments lie, as one argument more behind those with names.
.macro WITH_ARGUMENTS_ON_STACK name, register
FUNCTION \name
    mov \register, sp
    b \name\()_at
.endm
WITH_ARGUMENTS_ON_STACK macho_printf, x1
WITH_ARGUMENTS_ON_STACK macho_fprintf, x2
WITH_ARGUMENTS_ON_STACK macho_snprintf, x3
WITH_ARGUMENTS_ON_STACK macho_open, x2
WITH_ARGUMENTS_ON_STACK macho_fcntl, x2
WITH_ARGUMENTS_ON_STACK macho_append_format, x3
WITH_ARGUMENTS_ON_STACK macho_string_with_format, x3
    .section .note.GNU-stack,"",%progbits
