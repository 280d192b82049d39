import { useSignal, type Signal } from "@preact/signals";
import type { ComponentChildren, RefObject } from "preact";
import { useEffect, useRef } from "preact/hooks";
import { isForbidden } from "../../app/rpc";
import { access, connection, textOf } from "../../app/session";
import { readClock, secondsOf, timeText } from "../../app/set-clock";
import { SpeakerIcon } from "../../ui/icons";
import { Worded } from "../../ui/worded";
import { NowPlaying } from "../player/now-playing";
import { lastPress, press, shortcuts } from "../remote/remote";
import { textOfMessage } from "./menu";
import { chosenId, MenuView } from "./menu-view";
import { messageOf, placeOf, readFrame, readShown, type Banner, type Region, type SecondPicture, type Shown, type ShownEvent } from "./screen";
import { label } from "./words";
import "./screen.css";

// The set renders at most ten frames a second.
const frameMs = 100;
// What is drawn over the picture is read with every fifth frame.
const framesPerText = 5;

const keys: Readonly<Record<string, string>> = {
  ...shortcuts,
  Enter: "ENTER",
  Home: "MENU",
  f: "FAVORITE",
  g: "GUIDE",
  i: "INFO",
  s: "SOURCE",
  t: "TIMER",
  R: "RED",
  G: "GREEN",
  Y: "YELLOW",
  B: "BLUE",
};

/** While the panel is open and the page visible: draws the newest frames, and reads what is written on the screen. */
function useScreen(canvas: RefObject<HTMLCanvasElement | null>, shown: Signal<Shown | null>, problem: Signal<string>) {
  const readable = connection.value.name === "open" && access.value === "control";
  useEffect(() => {
    if (!readable) return;
    let timer: ReturnType<typeof setTimeout> | undefined;
    let open = true;
    let tag = "";
    let turns = 0;
    let presses = lastPress.value?.number;

    async function turn() {
      // A key may have changed what is drawn.
      if (lastPress.value?.number !== presses) {
        presses = lastPress.value?.number;
        turns = 0;
      }
      if (turns++ % framesPerText === 0) shown.value = await readShown();
      // A set that cannot render has no frame to ask for.
      const frame = shown.value?.reason === "unavailable" ? null : await readFrame(tag);
      if (!frame) return;
      tag = frame.tag;
      const element = open ? canvas.current : null;
      element?.getContext("2d")?.drawImage(frame.bitmap, 0, 0, element.width, element.height);
      if (element) element.dataset["frame"] = tag;
      frame.bitmap.close();
    }

    async function poll() {
      const begin = performance.now();
      if (document.visibilityState === "visible") {
        await turn().then(
          () => (problem.value = ""),
          (reason: unknown) => {
            turns = 0;
            if (!isForbidden(reason)) problem.value = textOf(reason);
          },
        );
      }
      // After a failure the set is asked once a second.
      const pause = problem.value ? 10 * frameMs : Math.max(0, begin + frameMs - performance.now());
      if (open) timer = setTimeout(() => void poll(), pause);
    }

    void readClock().catch(() => undefined); // without it, times are shown in the browser's zone
    void poll();
    return () => {
      open = false;
      clearTimeout(timer);
    };
  }, [readable]);
}

/** Whether the source's name is in the corner. A source without a channel has it in the middle; menus and digits cover it. */
const namesSource = ({ picture, reason, menu, typed }: Shown): boolean =>
  picture === "none" && reason !== "source" && !menu && !typed;

export function ScreenPanel() {
  const canvas = useRef<HTMLCanvasElement>(null);
  const shown = useSignal<Shown | null>(null);
  const problem = useSignal("");
  useScreen(canvas, shown, problem);

  function pressKey(event: KeyboardEvent) {
    const key = keys[event.key];
    if (!key || event.ctrlKey || event.metaKey || event.altKey) return;
    event.preventDefault();
    void press(key);
  }

  const now = shown.value;
  const message = problem.value || (now ? messageOf(now) : "");
  return (
    <main class="panel screen-panel" aria-label={label("IDS_PICTURE")}>
      <h1>{label("IDS_PICTURE")}</h1>
      {access.value === "look" ? (
        <p class="access-notice" role="alert">
          {label("IDS_PICTURE_TOKEN")}
        </p>
      ) : (
        <div
          class="screen"
          tabIndex={0}
          role="group"
          aria-label={label("IDS_PICTURE")}
          aria-activedescendant={now?.menu ? chosenId : undefined}
          onKeyDown={pressKey}
        >
          <canvas ref={canvas} width={640} height={360} role="img" aria-label={message || now?.title || now?.source || label("IDS_PICTURE")} />
          {now && namesSource(now) && <p class="screen-source">{now.source}</p>}
          <PictureFrame region={now?.region} heard={now?.focus === "main"}>
            <p class="screen-message" role="status">
              {message}
            </p>
          </PictureFrame>
          {now?.second && <SecondView second={now.second} heard={now.focus === "sub"} />}
          {now?.volume !== undefined && <VolumeMark volume={now.volume} muted={now.mute === true} />}
          {now?.typed && <p class="screen-typed">{now.typed}-</p>}
          <div aria-live="polite">
            {now?.message && <p class="screen-note">{textOfMessage(now.message)}</p>}
            {now?.banner && !now.menu && <BannerView banner={now.banner} />}
          </div>
          {now?.menu && <MenuView menu={now.menu} press={(key) => void press(key)} />}
        </div>
      )}
      <NowPlaying />
      <p class="hint">
        <Worded text={label("IDS_SCREEN_KEYS")} as="kbd" />
      </p>
    </main>
  );
}

interface PictureFrameProps {
  /** Without it, the picture covers the screen. */
  region: Region | undefined;
  heard: boolean;
  children: ComponentChildren;
}

/** What lies over one picture: why there is none, and a mark if it is the one that is heard. */
function PictureFrame({ region, heard, children }: PictureFrameProps) {
  return (
    <div class="screen-picture" data-heard={heard} style={region && placeOf(region)}>
      {heard && (
        <span class="screen-heard" role="img" aria-label={label("IDS_SOUND")}>
          <SpeakerIcon />
        </span>
      )}
      {children}
    </div>
  );
}

function SecondView({ second, heard }: { second: SecondPicture; heard: boolean }) {
  const name = [second.channel, second.name ?? second.source].join(" ").trim();
  return (
    <div role="group" aria-label={label("IDS_SECOND_PICTURE")} class="screen-second">
      <PictureFrame region={second.region} heard={heard}>
        <span class="screen-name">{name}</span>
        <p class="screen-message" role="status">
          {messageOf(second)}
        </p>
      </PictureFrame>
    </div>
  );
}

function VolumeMark({ volume, muted }: { volume: number; muted: boolean }) {
  return (
    <div class="screen-volume" data-muted={muted}>
      <span>{muted ? label("IDS_OFF") : volume}</span>
      <progress max={100} value={muted ? 0 : volume} aria-label={label("IDS_VOLUME")} />
    </div>
  );
}

function EventLine({ event }: { event: ShownEvent }) {
  return (
    <span>
      <time>
        {timeText(secondsOf(event.start))}–{timeText(secondsOf(event.start) + event.seconds)}
      </time>{" "}
      {event.title}
    </span>
  );
}

function BannerView({ banner: { number, name, present, following } }: { banner: Banner }) {
  return (
    <div class="screen-banner">
      <b>
        {number} {name}
      </b>
      {present && (
        <>
          <EventLine event={present} />
          <progress max={1} value={present.progress} aria-label={present.title} />
        </>
      )}
      {following && <EventLine event={following} />}
    </div>
  );
}
