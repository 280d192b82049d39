import { useSignal } from "@preact/signals";
import type { ComponentChildren } from "preact";
import { AccessNotice } from "../../app/access-notice";
import { usePolling } from "../../app/commands";
import { show } from "../../app/navigation";
import { access } from "../../app/session";
import { StickForm } from "../../app/stick-form";
import { IconButton } from "../../ui/icon-button";
import { AntennaIcon, DownIcon, EjectIcon, MinusIcon, MutedIcon, PlusIcon, SpeakerIcon, UpIcon } from "../../ui/icons";
import { LineForm } from "../../ui/line-form";
import { Problem } from "../../ui/problem";
import { change, readState, state, type SetState } from "./set";
import { label } from "./words";
import "./set.css";

const pauseMs = 1000;

/** What the set is doing now, each part with the controls that change it. */
export function SetPanel() {
  const problem = usePolling(readState, () => pauseMs);
  const now = state.value;
  return (
    <main class="panel sheet set-panel" aria-label={label("IDS_TELEVISION")}>
      <h1>{label("IDS_TELEVISION")}</h1>
      <AccessNotice when="look" />
      <Problem text={problem.value} />
      {access.value === "control" && now && (
        <div class="set-parts">
          <Power now={now} />
          <Channel now={now} />
          <Source now={now} />
          <Sound now={now} />
          <Clock now={now} />
          <Sleep now={now} />
          <Applications now={now} />
          <Sticks now={now} />
          <Network now={now} />
          <Cec now={now} />
        </div>
      )}
    </main>
  );
}

type Send = (...words: string[]) => Promise<boolean>;

interface PartProps {
  id: string;
  title: string;
  /** The command of dtvctl that does the same. */
  command: string;
  children: (send: Send) => ComponentChildren;
}

/** One part of the state. Below it stands why its last command was refused. */
function Part({ id, title, command, children }: PartProps) {
  const problem = useSignal("");
  return (
    <section class="framed set-part" data-part={id} aria-label={title}>
      <h2>{title}</h2>
      {children((...words) => change(problem, ...words))}
      <Problem text={problem.value} />
      <code class="set-command">dtvctl tv {command}</code>
    </section>
  );
}

interface Props {
  now: SetState;
}

const Power = ({ now: { power } }: Props) => (
  <Part id="power" title={label("IDS_POWER")} command="power toggle">
    {(send) => (
      <p class="set-line">
        <b>{label(power === "on" ? "IDS_ON" : "IDS_STANDBY")}</b>
        <button type="button" class="button small" onClick={() => void send("power", "toggle")}>
          {label(power === "on" ? "IDS_STANDBY" : "IDS_SWITCH_ON")}
        </button>
      </p>
    )}
  </Part>
);

const Channel = ({ now: { channel, channel_name: name = "" } }: Props) => (
  <Part id="channel" title={label("IDS_CHANNEL")} command="tune next">
    {(send) => (
      <p class="set-line">
        <b dir="auto">{channel === null ? label("IDS_NONE") : `${channel} ${name}`}</b>
        <IconButton label={label("IDS_CHANNEL_PREVIOUS")} onClick={() => void send("tune", "previous")}>
          <DownIcon />
        </IconButton>
        <IconButton label={label("IDS_CHANNEL_NEXT")} onClick={() => void send("tune", "next")}>
          <UpIcon />
        </IconButton>
        {channel === null && (
          <button type="button" class="button small" onClick={() => show("scan")}>
            <AntennaIcon />
            {label("IDS_CHANNEL_SEARCH")}
          </button>
        )}
      </p>
    )}
  </Part>
);

const Source = ({ now: { source, sources } }: Props) => (
  <Part id="source" title={label("IDS_SOURCE")} command={`source "${source}"`}>
    {(send) => (
      <select
        class="select"
        aria-label={label("IDS_SOURCE")}
        value={String(sources.find(({ name }) => name === source)?.number ?? "")}
        onChange={(event) => void send("source", event.currentTarget.value)}
      >
        {sources.map(({ number, name, device, signal }) => (
          <option key={number} value={String(number)}>
            {[name, device, signal ? label("IDS_SIGNAL") : undefined].filter(Boolean).join(" · ")}
          </option>
        ))}
      </select>
    )}
  </Part>
);

const Sound = ({ now: { volume, mute } }: Props) => (
  <Part id="sound" title={label("IDS_VOLUME")} command="volume up">
    {(send) => (
      <p class="set-line">
        <b>{mute ? <s class="bad">{volume}</s> : volume}</b>
        <IconButton label={label("IDS_SOFTER")} onClick={() => void send("volume", "down")}>
          <MinusIcon />
        </IconButton>
        <IconButton label={label("IDS_LOUDER")} onClick={() => void send("volume", "up")}>
          <PlusIcon />
        </IconButton>
        <button type="button" class="button small" aria-pressed={mute} onClick={() => void send("mute", "toggle")}>
          {mute ? <MutedIcon /> : <SpeakerIcon />}
          {label("IDS_MUTE")}
        </button>
      </p>
    )}
  </Part>
);

/** "2026-03-29 12:30:00", the local time of a reply. */
const localText = (local: string): string => local.slice(0, 19).replace("T", " ");

const Clock = ({ now: { clock } }: Props) => (
  <Part id="clock" title={label("IDS_CLOCK")} command={`clock zone ${clock.zone}`}>
    {(send) => (
      <>
        <p class="set-line">
          <b>
            <time>{localText(clock.local)}</time>
          </b>
        </p>
        <LineForm
          key={clock.zone}
          class="set-form"
          label={label("IDS_TIME_ZONE")}
          text={clock.zone}
          action={label("IDS_SAVE")}
          empty={false}
          send={(zone) => send("clock", "zone", zone.trim())}
          close={() => undefined}
        />
      </>
    )}
  </Part>
);

const sleepMinutes = [0, 15, 30, 60, 90, 120];

const Sleep = ({ now: { clock } }: Props) => {
  const left = Math.ceil(clock.sleep_seconds / 60);
  // The menu also offers the time that is left, so that it can show it.
  const choices = [...new Set([...sleepMinutes, left])].sort((one, other) => one - other);
  return (
    <Part id="sleep" title={label("IDS_SLEEP_TIMER")} command="clock sleep 1800">
      {(send) => (
        <p class="set-line">
          <select
            class="select"
            aria-label={label("IDS_SLEEP_TIMER")}
            value={String(left)}
            onChange={(event) => void send("clock", "sleep", String(60 * Number(event.currentTarget.value)))}
          >
            {choices.map((minutes) => (
              <option key={minutes} value={String(minutes)}>
                {minutes === 0
                  ? label("IDS_OFF")
                  : label(sleepMinutes.includes(minutes) ? "IDS_MINUTES" : "IDS_MINUTES_LEFT", minutes)}
              </option>
            ))}
          </select>
        </p>
      )}
    </Part>
  );
};

function Applications({ now: { applications } }: Props) {
  const { hbbtv, portal, native_app: own } = applications;
  const running = [own, portal.mode, hbbtv.enabled ? hbbtv.uri : ""].filter((name) => name !== "");
  return (
    <Part id="applications" title={label("IDS_APPLICATIONS")} command="app">
      {(send) => (
        <p class="set-line">
          <b dir="auto">{running.length > 0 ? running.join(", ") : label("IDS_NONE")}</b>
          <span class="quiet">HbbTV: {label(hbbtv.enabled ? "IDS_ON" : "IDS_OFF")}</span>
          {running.length > 0 && (
            <button type="button" class="button small" onClick={() => void send("key", "EXIT")}>
              {label("IDS_END_APPLICATION")}
            </button>
          )}
        </p>
      )}
    </Part>
  );
}

const Sticks = ({ now: { sticks } }: Props) => (
  <Part id="sticks" title={label("IDS_STICKS")} command="stick insert DIR">
    {(send) => (
      <>
        {sticks.length === 0 && <p class="quiet">{label("IDS_NO_STICK")}</p>}
        <ul>
          {sticks.map(({ device, label: name, folder }) => (
            <li key={device} class="set-line">
              <b dir="auto">{name || device}</b>
              <span class="quiet" dir="auto">
                {folder}
              </span>
              <IconButton label={`${label("IDS_REMOVE")}: ${name || device}`} onClick={() => void send("stick", "remove", device)}>
                <EjectIcon />
              </IconButton>
            </li>
          ))}
        </ul>
        <StickForm class="set-form" send={(folder) => send("stick", "insert", folder)} close={() => undefined} />
      </>
    )}
  </Part>
);

const Network = ({ now: { network } }: Props) => {
  const pulled = network.cable === "pulled";
  return (
    <Part id="network" title={label("IDS_NETWORK")} command={`network ${pulled ? "restore" : "lose"}`}>
      {(send) => (
        <>
          <ul>
            {Object.entries(network.interfaces).map(([name, { kind, state: plugged, addresses }]) => (
              <li key={name} class="set-line">
                <b>{name}</b>
                {plugged === "plugged" ? (
                  <span class="badge good">{label("IDS_CONNECTED")}</span>
                ) : (
                  <span class="badge bad">{label(pulled && kind === "ethernet" ? "IDS_CABLE_PULLED" : "IDS_DISCONNECTED")}</span>
                )}
                {addresses.length > 0 && <span class="quiet set-addresses">{addresses.join(" ")}</span>}
              </li>
            ))}
          </ul>
          {pulled && Object.keys(network.interfaces).length === 0 && <p class="bad">{label("IDS_CABLE_PULLED")}</p>}
          <button
            type="button"
            class="button small"
            aria-pressed={pulled}
            onClick={() => void send("network", pulled ? "restore" : "lose")}
          >
            {label(pulled ? "IDS_CABLE_PUT_BACK" : "IDS_CABLE_PULL")}
          </button>
        </>
      )}
    </Part>
  );
};

const Cec = ({ now: { cec } }: Props) => (
  <Part id="cec" title={label("IDS_CEC")} command="cec play player">
    {(send) => (
      <ul>
        {cec.map(({ device, name, plugged, power, active }) => (
          <li key={device} class="set-line">
            <b dir="auto">{name}</b>
            <span class="quiet">{!plugged ? "–" : active ? label("IDS_SOURCE") : label(power === "on" ? "IDS_ON" : "IDS_STANDBY")}</span>
            {plugged && (
              <>
                <button type="button" class="button small" onClick={() => void send("cec", "play", device)}>
                  {label("IDS_PLAY")}
                </button>
                <button type="button" class="button small" onClick={() => void send("cec", "standby", device)}>
                  {label("IDS_STANDBY")}
                </button>
              </>
            )}
            <button
              type="button"
              class="button small"
              aria-pressed={!plugged}
              onClick={() => void send("cec", plugged ? "unplug" : "plug", device)}
            >
              {label(plugged ? "IDS_UNPLUG" : "IDS_PLUG")}
            </button>
          </li>
        ))}
      </ul>
    )}
  </Part>
);
