/* Loaded into opkg 0.1.8, which reads memory that it has freed with --force-reinstall, and then may
 * crash: nothing is freed. */
void free(void* block);

void free(void* block) { (void)block; }
