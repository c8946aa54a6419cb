// What an image's code calls in registers of its own choosing; in assembler, one file a processor.
#pragma once

extern "C" {
// Where a thread-local variable lies: keeps every register but that of the result.
void macho_thread_local_thunk();
// Find a method and go on there with all arguments where they are.
void macho_send();
void macho_send_super();
}
