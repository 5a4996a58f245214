/* SPDX-License-Identifier: ISC */
/* Stands in for the ALSA sequencer where there is no /dev/snd/seq, without which qtractor does not
   start its engine: what is opened opens, nothing ever comes, what is sent is dropped. Preloaded.
 */
#include <errno.h>
#include <poll.h>
#include <unistd.h>

static int ends[2] = {-1, -1};
static char handle[64];

int snd_seq_open(void** h, const char* name, int streams, int mode)
{
    (void)name, (void)streams, (void)mode;
    if (ends[0] < 0 && pipe(ends) != 0) return -errno;
    *h = handle;
    return 0;
}

int snd_seq_create_simple_port(void* h, const char* name, unsigned caps, unsigned type)
{
    static int ports;
    (void)h, (void)name, (void)caps, (void)type;
    return ports++;
}

int snd_seq_poll_descriptors(void* h, struct pollfd* fds, unsigned count, short events)
{
    (void)h, (void)events;
    if (count == 0) return 0;
    fds[0] = (struct pollfd){.fd = ends[0], .events = POLLIN};
    return 1;
}

int snd_seq_event_input(void* h, void** event)
{
    (void)h;
    *event = 0;
    return -EAGAIN;
}

#define ANSWER(name, value)                                                                        \
    int name(void)                                                                                 \
    {                                                                                              \
        return value;                                                                              \
    }
ANSWER(snd_seq_close, 0)
ANSWER(snd_seq_client_id, 128)
ANSWER(snd_seq_alloc_queue, 0)
ANSWER(snd_seq_free_queue, 0)
ANSWER(snd_seq_delete_simple_port, 0)
ANSWER(snd_seq_poll_descriptors_count, 1)
ANSWER(snd_seq_event_input_pending, 0)
ANSWER(snd_seq_control_queue, 0)
ANSWER(snd_seq_drain_output, 0)
ANSWER(snd_seq_drop_input, 0)
ANSWER(snd_seq_drop_output, 0)
ANSWER(snd_seq_event_output, 0)
ANSWER(snd_seq_event_output_direct, 0)
ANSWER(snd_seq_get_port_info, 0)
ANSWER(snd_seq_set_port_info, 0)
ANSWER(snd_seq_get_queue_status, 0)
ANSWER(snd_seq_get_queue_tempo, 0)
ANSWER(snd_seq_set_queue_tempo, 0)
ANSWER(snd_seq_set_queue_timer, 0)
ANSWER(snd_seq_remove_events, 0)
ANSWER(snd_seq_set_client_name, 0)
ANSWER(snd_seq_subscribe_port, 0)
ANSWER(snd_seq_unsubscribe_port, 0)
ANSWER(snd_seq_query_next_client, -ENOENT)
ANSWER(snd_seq_query_next_port, -ENOENT)
ANSWER(snd_seq_query_port_subscribers, -ENOENT)
ANSWER(snd_seq_get_any_client_info, -ENOENT)
ANSWER(snd_seq_get_any_port_info, -ENOENT)
