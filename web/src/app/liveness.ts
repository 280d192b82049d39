/**
 * Watches whether the other end of a connection still answers. It hears of every message, asks for one when there was none
 * for a while, and gives the connection up when there was none for long.
 */

export interface Liveness {
  /** Something has arrived. */
  heard(): void;
  stop(): void;
}

interface LivenessOptions {
  /** Asks the other end for a message. */
  ask: () => void;
  /** The other end stopped answering, or answers again. */
  onSilent: (silent: boolean) => void;
  onLost: () => void;
  /** Whether a long message may be on its way, which is heard only when it is complete. */
  expectsLong: () => boolean;
}

const tickMs = 500;
/** Silence after which the page asks the other end, again and again. */
const askMs = 3_000;
/** Silence after which it counts as not answering: a question has had no answer for `askMs`. */
const silentMs = 2 * askMs;
const lostMs = 9_000;
const lostWithLongMessageMs = 30_000;

export function watchLiveness({ ask, onSilent, onLost, expectsLong }: LivenessOptions): Liveness {
  let silence = 0;
  let asked = 0;
  let silent = false;
  let last = performance.now();

  const timer = setInterval(() => {
    const now = performance.now();
    // While the machine slept or the browser held the page's timers back, answers could not arrive either. Such time
    // does not count: a tick adds at most two.
    silence += Math.min(now - last, 2 * tickMs);
    last = now;
    if (silence >= (expectsLong() ? lostWithLongMessageMs : lostMs)) {
      stop();
      onLost();
      return;
    }
    if (silence >= silentMs && !silent) onSilent((silent = true));
    if (Math.floor(silence / askMs) > asked) {
      asked = Math.floor(silence / askMs);
      ask();
    }
  }, tickMs);

  function stop() {
    clearInterval(timer);
  }

  return {
    heard() {
      silence = 0;
      asked = 0;
      if (silent) onSilent((silent = false));
    },
    stop,
  };
}
