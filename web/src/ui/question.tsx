import { signal } from "@preact/signals";
import { useLayoutEffect, useRef } from "preact/hooks";
import "./question.css";

interface Question {
  text: string;
  /** What happens, in a sentence. */
  about?: string;
  /** The button that does it. */
  action: string;
}

const asked = signal<(Question & { answer: (yes: boolean) => void }) | null>(null);

/** Asks before something is done that cannot be undone. Resolves to whether the viewer wants it. */
export function ask(question: Question): Promise<boolean> {
  // A dialog that is open keeps everything else from being pressed.
  if (asked.peek()) return Promise.resolve(false);
  return new Promise((resolve) => {
    asked.value = {
      ...question,
      answer(yes) {
        asked.value = null;
        resolve(yes);
      },
    };
  });
}

/** The dialog of `ask`. The safe answer has the focus, and the Escape key gives it. */
export function QuestionDialog({ cancel }: { cancel: string }) {
  const dialog = useRef<HTMLDialogElement>(null);
  const question = asked.value;

  useLayoutEffect(() => {
    const element = dialog.current;
    if (!element || !question) return;
    element.returnValue = "";
    element.showModal();
    return () => element.close();
  }, [question]);

  if (!question) return null;
  const { text, about, action, answer } = question;
  return (
    <dialog
      ref={dialog}
      class="question"
      role="alertdialog"
      aria-labelledby="question-text"
      aria-describedby={about ? "question-about" : undefined}
      onClose={(event) => answer(event.currentTarget.returnValue === "yes")}
    >
      <form method="dialog">
        <h2 id="question-text">{text}</h2>
        {about && <p id="question-about">{about}</p>}
        <div class="question-answers">
          <button type="submit" class="button" value="no" autofocus>
            {cancel}
          </button>
          <button type="submit" class="button danger" value="yes">
            {action}
          </button>
        </div>
      </form>
    </dialog>
  );
}
