// Turns and rolls: the outgoing frame flips over or rolls away.
