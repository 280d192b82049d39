import { IconButton } from "../../ui/icon-button";
import { MinusIcon, NextIcon, PauseIcon, PlayIcon, PlusIcon, PreviousIcon, RotateIcon, StopIcon } from "../../ui/icons";
import { PictureButton } from "./now-playing";
import { nameOf, sendPhoto, type Photo } from "./player";
import { label } from "./words";

const leastZoom = 10;
const mostZoom = 800;

/** A step of the zoom: by a quarter, in whole percent. */
const zoomed = (zoom: number, by: number): string =>
  String(Math.round(Math.min(mostZoom, Math.max(leastZoom, zoom * by))));

/** The photo on the set's screen, and what can be done with it. */
export function PhotoBar({ photo }: { photo: Photo }) {
  const { path = "", width = 0, height = 0, zoom = 100, slide_show: runs = false, application, index, of } = photo;
  return (
    <section class="framed player" aria-label={label("IDS_PHOTO")}>
      <div class="player-head">
        <p class="player-title" dir="auto">
          {nameOf(path)}
        </p>
        <p class="quiet">
          {[index !== undefined && of ? `${index} / ${of}` : "", width > 0 ? `${width} × ${height}` : ""]
            .filter(Boolean)
            .join(" · ")}
        </p>
        {application && <span class="badge">{label("IDS_APPLICATION_USES")}</span>}
      </div>
      <div class="player-line">
        <IconButton label={label("IDS_PREVIOUS")} onClick={() => void sendPhoto("previous")}>
          <PreviousIcon />
        </IconButton>
        <IconButton label={label("IDS_NEXT")} onClick={() => void sendPhoto("next")}>
          <NextIcon />
        </IconButton>
        <IconButton label={label("IDS_ROTATE")} onClick={() => void sendPhoto("rotate")}>
          <RotateIcon />
        </IconButton>
        <IconButton
          label={label("IDS_SMALLER")}
          disabled={zoom <= leastZoom}
          onClick={() => void sendPhoto("zoom", zoomed(zoom, 1 / 1.25))}
        >
          <MinusIcon />
        </IconButton>
        <output class="photo-zoom" aria-label={label("IDS_ZOOM")}>{`${Math.round(zoom)} %`}</output>
        <IconButton
          label={label("IDS_LARGER")}
          disabled={zoom >= mostZoom}
          onClick={() => void sendPhoto("zoom", zoomed(zoom, 1.25))}
        >
          <PlusIcon />
        </IconButton>
        <button
          type="button"
          class="button small"
          aria-pressed={runs}
          onClick={() => void sendPhoto("slideshow", runs ? "off" : "on")}
        >
          {runs ? <PauseIcon /> : <PlayIcon />}
          <span class="player-word">{label("IDS_SLIDE_SHOW")}</span>
        </button>
        <button type="button" class="button small" onClick={() => void sendPhoto("close")}>
          <StopIcon />
          <span class="player-word">{label("IDS_CLOSE")}</span>
        </button>
        <PictureButton />
      </div>
    </section>
  );
}
