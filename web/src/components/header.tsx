import { connection, reconnectNow, remote } from "../model/session";
import { MinusIcon, PlusIcon } from "./icons";
import { VolumeBar } from "./volume-bar";

export function Header() {
  return (
    <header class="header">
      <a class="brand" href="#" aria-label="dtv inspector, start">
        <svg viewBox="0 0 32 32" width="28" height="28" aria-hidden="true">
          <rect x="2" y="5" width="28" height="19" rx="4" fill="currentColor" />
          <path d="M10 28h12" stroke="currentColor" stroke-width="3" stroke-linecap="round" />
          <path class="brand-wave" d="M9 17v-4M14 19v-8M19 17v-4M24 16v-2" stroke-width="2.4" stroke-linecap="round" />
        </svg>
        <span>
          <b>dtv</b> <span class="second">inspector</span>
        </span>
      </a>
      <VolumeBar />
      <Remote />
      <Connection />
    </header>
  );
}

/** Keys of the television's own remote control: what a viewer does, beside what an application sets. */
const Remote = () => (
  <div class="remote" role="group" aria-label="Remote control">
    <span class="remote-name">Remote</span>
    <button type="button" aria-label="Remote control: volume down" onClick={() => remote("volume", "down")}>
      <MinusIcon />
    </button>
    <span class="remote-vol" aria-hidden="true">
      VOL
    </span>
    <button type="button" aria-label="Remote control: volume up" onClick={() => remote("volume", "up")}>
      <PlusIcon />
    </button>
    <button
      type="button"
      class="remote-mute"
      aria-label="Remote control: mute"
      onClick={() => remote("mute", "toggle")}
    >
      MUTE
    </button>
  </div>
);

const stateNames = { open: "Connected", connecting: "Connecting…", waiting: "Offline" } as const;

function Connection() {
  const { name } = connection.value;
  return (
    <div class="connection" data-state={name}>
      <span class="dot" aria-hidden="true" />
      <span role="status">{stateNames[name]}</span>
      {name === "waiting" && (
        <button type="button" class="link-button" onClick={reconnectNow}>
          Retry
        </button>
      )}
    </div>
  );
}
