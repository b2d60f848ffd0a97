// SPDX-License-Identifier: Apache-2.0
// Puts a node that never answers in the place of a file: whoever reads it hangs as in a driver that does, in a state
// that no signal ends. A word on standard output says when it stands. SIGUSR1 lets every read end, those that hang and
// those to come, with the text; SIGTERM takes the node away, and those that hang fail.
#define FUSE_USE_VERSION 35
#include <errno.h>
#include <fuse_lowlevel.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

enum { most_waiting = 256 };

static struct {
    const char *text;
    int hangs_in_open;
    int answers;
    fuse_req_t waiting[most_waiting];
    int waiting_count;
} node;

static void get_attributes(fuse_req_t request, fuse_ino_t inode, struct fuse_file_info *file)
{
    (void)file;
    struct stat info = {.st_ino = inode, .st_mode = S_IFREG | 0644, .st_nlink = 1, .st_size = 4096};
    fuse_reply_attr(request, &info, 0);
}

static void answer(fuse_req_t request)
{
    fuse_reply_buf(request, node.text, strlen(node.text));
}

static void hang(fuse_req_t request)
{
    if (node.waiting_count < most_waiting)
        node.waiting[node.waiting_count++] = request;
}

static void open_node(fuse_req_t request, fuse_ino_t inode, struct fuse_file_info *file)
{
    (void)inode;
    if (node.hangs_in_open && !node.answers) {
        hang(request);
        return;
    }
    file->direct_io = 1;
    fuse_reply_open(request, file);
}

static void read_node(fuse_req_t request, fuse_ino_t inode, size_t size, off_t offset, struct fuse_file_info *file)
{
    (void)inode;
    (void)size;
    (void)file;
    if (offset != 0)
        fuse_reply_buf(request, NULL, 0);
    else if (node.answers)
        answer(request);
    else
        hang(request);
}

static const struct fuse_lowlevel_ops operations = {.getattr = get_attributes, .open = open_node, .read = read_node};

static void let_go(void)
{
    struct fuse_file_info file = {.direct_io = 1};
    node.answers = 1;
    while (node.waiting_count > 0) {
        fuse_req_t request = node.waiting[--node.waiting_count];
        if (node.hangs_in_open)
            fuse_reply_open(request, &file);
        else
            answer(request);
    }
}

static volatile sig_atomic_t asked_to_answer;

static void on_answer(int number)
{
    (void)number;
    asked_to_answer = 1;
}

// As fuse_session_loop(), which has no place for the other signal.
static int serve(struct fuse_session *session)
{
    struct fuse_buf buffer = {0};
    int size = 0;
    while (!fuse_session_exited(session) && (size >= 0 || size == -EINTR)) {
        if (asked_to_answer && !node.answers)
            let_go();
        size = fuse_session_receive_buf(session, &buffer);
        if (size > 0)
            fuse_session_process_buf(session, &buffer);
        else if (size == 0)
            break;
    }
    free(buffer.mem);
    return 0;
}

int main(int argc, char **argv)
{
    node.hangs_in_open = argc > 3 && strcmp(argv[3], "open") == 0;
    if (argc < 3) {
        fprintf(stderr, "usage: %s FILE TEXT [open]\n", argv[0]);
        return 1;
    }
    node.text = argv[2];
    struct fuse_args arguments = FUSE_ARGS_INIT(0, NULL);
    fuse_opt_add_arg(&arguments, argv[0]);
    struct fuse_session *session = fuse_session_new(&arguments, &operations, sizeof operations, NULL);
    fuse_opt_free_args(&arguments);
    struct sigaction action = {.sa_handler = on_answer};
    if (session == NULL || fuse_set_signal_handlers(session) != 0 || sigaction(SIGUSR1, &action, NULL) != 0)
        return 1;
    if (fuse_session_mount(session, argv[1]) != 0)
        return 1;
    puts("ready");
    fflush(stdout);
    serve(session);
    fuse_session_unmount(session);
    fuse_remove_signal_handlers(session);
    fuse_session_destroy(session);
    return 0;
}
