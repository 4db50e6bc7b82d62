# Sourced by the scripts that check the layers.

# From below to above.
layers=(portable RegLib/base RegLib/text RegLib/trace RegLib/tree RegLib/watch RegLib/store RegLib/file
        RegLib/instance RegLib/session RegLib/c)

# The trace log reads its level through a session, whose store writes to it.
seam=CRegLibTrace::readConfiguration

# What the library's own functions are called too counts only with "::" before it; check-calls finds the
# others.
system_calls='pthread_[a-z_]+|sem_[a-z]+|v?fork|waitpid|fch(mod|own)(at)?|ch(mod|own)|[fl]?stat(at|vfs|x)?|dup[23]?|fcntl|ioctl|flock|m(un)?map|shm[a-z]+|mk(dir|fifo)|fdopen|f(data)?sync|f?truncate|get[pe]?[pug]id|syscall|nanosleep|poll'
also_own_names='(un)?link(at)?|open(at)?|close|rename(at2?)?|read(link)?|write|access|kill|umask|pipe2?|select'
