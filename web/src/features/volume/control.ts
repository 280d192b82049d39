import { batch, computed, signal, type ReadonlySignal } from "@preact/signals";

export interface VolumeState {
  volume: number;
  muted: boolean;
}

/** How the control reads and sets the television's volume. Each promise rejects on failure. */
export interface VolumeActions {
  read: () => Promise<VolumeState>;
  setVolume: (volume: number) => Promise<void>;
  setMute: (muted: boolean) => Promise<void>;
  onError: (error: unknown) => void;
}

export interface VolumeControl {
  /** The position of the slider; null until the volume is known. */
  volume: ReadonlySignal<number | null>;
  muted: ReadonlySignal<boolean | null>;
  refresh(): void;
  /** The connection was lost, so the volume is unknown. */
  forget(): void;
  update(state: VolumeState): void;
  grab(): void;
  slide(volume: number): void;
  release(): void;
  toggleMute(): void;
}

// An echo is the notification that a set of the volume causes. A released slider keeps its position while it waits for
// the echo of its own value, and for a moment after that, because echoes of earlier positions may still follow.
const awaitEchoMs = 400;
const afterEchoMs = 80;

/**
 * The logic of the slider. While the viewer holds it, at most one set is in flight and the last position wins;
 * notifications are remembered but not shown. After the last set the slider waits for the echo of its own value, so
 * that echoes of earlier values do not move it back.
 */
export function createVolume(actions: VolumeActions): VolumeControl {
  const actual = signal<VolumeState | null>(null);
  const wanted = signal<number | null>(null);
  const pendingMute = signal<boolean | null>(null);
  let held = false;
  let inFlight = false;
  let sent: number | null = null;
  let letGo: { timer: ReturnType<typeof setTimeout>; echoed: boolean } | undefined;
  let changes = 0;

  function keepHold() {
    clearTimeout(letGo?.timer);
    letGo = undefined;
  }

  function yieldToActual() {
    keepHold();
    wanted.value = null;
    sent = null;
  }

  function read() {
    const before = changes;
    return actions.read().then((state) => {
      // A notification that arrived meanwhile is newer than this answer.
      if (changes === before) actual.value = state;
    }, actions.onError);
  }

  function settle() {
    if (held || inFlight || wanted.value === null) return;
    const echoed = wanted.value === actual.value?.volume;
    if (letGo && (letGo.echoed || !echoed)) return;
    keepHold();
    const then = () => {
      if (echoed) yieldToActual();
      // No echo came: read the volume before the slider follows it again.
      else
        void read().finally(() => {
          if (!held && !inFlight) yieldToActual();
        });
    };
    letGo = { timer: setTimeout(then, echoed ? afterEchoMs : awaitEchoMs), echoed };
  }

  async function pump() {
    if (inFlight) return;
    inFlight = true;
    try {
      while (wanted.value !== null && wanted.value !== sent) {
        sent = wanted.value;
        await actions.setVolume(sent);
      }
    } catch (error) {
      // The slider returns to the actual volume. If the viewer still holds it, its next move starts a new set.
      yieldToActual();
      actions.onError(error);
    } finally {
      inFlight = false;
    }
    settle();
  }

  return {
    volume: computed(() => wanted.value ?? actual.value?.volume ?? null),
    muted: computed(() => pendingMute.value ?? actual.value?.muted ?? null),
    refresh: () => void read(),
    forget() {
      batch(() => {
        yieldToActual();
        actual.value = null;
      });
    },
    update(state) {
      changes++;
      actual.value = state;
      settle();
    },
    grab() {
      held = true;
      keepHold();
    },
    slide(volume) {
      keepHold();
      wanted.value = volume;
      void pump();
    },
    release() {
      held = false;
      settle();
    },
    toggleMute() {
      if (!actual.value || pendingMute.value !== null) return;
      const muted = !actual.value.muted;
      pendingMute.value = muted;
      actions
        .setMute(muted)
        .then(() => {
          if (actual.value) actual.value = { ...actual.value, muted };
        })
        .catch(actions.onError)
        .finally(() => {
          pendingMute.value = null;
        });
    },
  };
}
