#pragma once
// What libl3if has learned of the machine's IPv4 addresses. Every frame that gets an option asks for them, so answers are kept
// until the kernel says that an address or an interface has changed.

// Forgets all answers.
void linuxL3Forget();
