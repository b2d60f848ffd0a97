// SPDX-License-Identifier: Apache-2.0
// Puts a node that never answers in the place of a file: whoever reads it hangs as in a driver that does, in a state
// that no signal ends. A word on standard output says when it stands. SIGUSR1 lets every read end, those that hang and
// those to come, with the text; where this process is killed, those that hang fail.
#define FUSE_USE_VERSION 31
#include <fuse.h>
#include <semaphore.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>

#pragma GCC diagnostic ignored "-Wunused-parameter" // libfuse says what is handed over

static const char *text;
static sem_t answers;

static void *say_ready(struct fuse_conn_info *connection, struct fuse_config *settings)
{
    settings->direct_io = 1;
    puts("ready");
    fflush(stdout);
    return NULL;
}

static int get_attributes(const char *path, struct stat *info, struct fuse_file_info *file)
{
    info->st_mode = S_IFREG | 0644;
    info->st_nlink = 1;
    info->st_size = 4096;
    return 0;
}

static int read_node(const char *path, char *buffer, size_t size, off_t offset, struct fuse_file_info *file)
{
    if (offset != 0)
        return 0;
    sem_wait(&answers);
    sem_post(&answers); // for the next one
    return snprintf(buffer, size, "%s", text);
}

static void answer(int number)
{
    sem_post(&answers);
}

int main(int argc, char **argv)
{
    if (argc != 3 || sem_init(&answers, 0, 0) != 0 || signal(SIGUSR1, answer) == SIG_ERR)
        return 1;
    text = argv[2];
    const struct fuse_operations operations = {.init = say_ready, .getattr = get_attributes, .read = read_node};
    char *arguments[] = {argv[0], "-f", "-omax_threads=32", argv[1], NULL};
    return fuse_main(4, arguments, &operations, NULL);
}
